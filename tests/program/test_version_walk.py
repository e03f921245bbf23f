"""A whole device database walks between versions."""

import decimal
import sqlite3
from contextlib import closing

from conftest import PRODUCT_SETTINGS, expected_log
from support.versions import dump_of

TABLE = "productControl_productSettings"
SIX_DIGITS = decimal.Context(prec=6, rounding=decimal.ROUND_HALF_UP)


def product_settings(device):
    """The table's definition and its rows."""
    with closing(sqlite3.connect(device.database)) as database:
        definition, = database.execute(f"SELECT sql FROM sqlite_master WHERE name = '{TABLE}'")
        return definition[0] + ";", database.execute(f"SELECT * FROM {TABLE}").fetchall()


def copied(row):
    """A row as a step writes it: NULL as an empty text or 0, real numbers with six digits."""
    product, name, capacity, machine, *rates = row
    capacity, *rates = (float(SIX_DIGITS.create_decimal_from_float(real or 0.0))
                        for real in (capacity, *rates))
    return (product or "", name or "", capacity, machine or 0, *rates)


def test_walk_to_version_2_and_back_touches_the_product_settings_only(device):
    device.sql(dump_of(1))
    device.software_version.write_text("1.2.3\n")
    others = device.contents(TABLE)
    definition, rows = product_settings(device)
    assert (definition, len(rows) > 20) == (PRODUCT_SETTINGS[1], True)

    device.run("2")
    to_version_2 = expected_log(
        1, 2, "Database migration to version 2 completed successfully!\n", (2, "1.2.3"))
    assert device.log() == to_version_2
    assert device.versions() == "mainSqlDb|2|'1.2.3'\naltSqlDb|1|NULL\n"
    assert product_settings(device) == (PRODUCT_SETTINGS[2], [(*copied(row), 0) for row in rows])
    assert device.contents(TABLE) == others

    device.run("1")
    assert device.log() == to_version_2 + expected_log(2, 1, update=(1, "1.2.3"))
    assert device.versions() == "mainSqlDb|1|'1.2.3'\naltSqlDb|2|NULL\n"
    assert product_settings(device) == (PRODUCT_SETTINGS[1], [copied(row) for row in rows])
    assert device.contents(TABLE) == others
