#include "guard/stored_schema.h"

#include "guard/btree.h"

#include <QString>
#include <QtEndian>

#include <algorithm>
#include <limits>
#include <tuple>

namespace
{
/// Reads the values of a record from the first to the last.
class RecordReader
{
public:
    explicit RecordReader(const QByteArray &record) : m_record(record)
    {
        quint64 size = 0;
        m_isValid = readVarint(record.size(), size) && size <= quint64(record.size());
        m_headerEnd = m_isValid ? static_cast<int>(size) : 0;
        m_body = m_headerEnd;
    }

    /// @return whether every value had the type that it was read as, and none is left
    bool isComplete() const { return m_isValid && m_position == m_headerEnd; }

    /// @return a text; a null one for NULL
    QByteArray text()
    {
        const quint64 type = nextType();
        if (type == 0) {
            return {};
        }
        m_isValid = m_isValid && type >= 13 && type % 2 == 1;
        const char *bytes = takeBytes((type - 13) / 2);
        return m_isValid ? QByteArray(bytes, static_cast<int>((type - 13) / 2)) : QByteArray();
    }

    /// @return an integer, 0 for NULL
    qint64 integer()
    {
        const quint64 type = nextType();
        if (type == 0 || type == 8 || type == 9) {
            return type == 9 ? 1 : 0;
        }
        static constexpr int sizes[] = {0, 1, 2, 3, 4, 6, 8};
        m_isValid = m_isValid && type <= 6;
        const int size = m_isValid ? sizes[type] : 0;
        const char *bytes = takeBytes(static_cast<quint64>(size));
        qint64 value = 0;
        for (int index = 0; m_isValid && index < size; ++index) {
            const qint64 digit = index == 0 ? static_cast<signed char>(bytes[index])
                                            : static_cast<unsigned char>(bytes[index]);
            value = value * 256 + digit;
        }
        return value;
    }

private:
    quint64 nextType()
    {
        quint64 type = 0;
        m_isValid = m_isValid && readVarint(m_headerEnd, type);
        return m_isValid ? type : 0;
    }

    const char *takeBytes(quint64 size)
    {
        m_isValid = m_isValid && size <= quint64(m_record.size() - m_body);
        const char *bytes = m_record.constData() + m_body;
        m_body += m_isValid ? static_cast<int>(size) : 0;
        return bytes;
    }

    bool readVarint(int end, quint64 &value)
    {
        for (int byte = 1; byte <= 8 && m_position < end; ++byte) {
            const quint8 bits = static_cast<quint8>(m_record[m_position++]);
            value = value << 7 | (bits & 0x7f);
            if (bits < 0x80) {
                return true;
            }
        }
        return false;
    }

    const QByteArray &m_record;
    bool m_isValid = false;
    int m_position = 0;
    int m_headerEnd = 0;
    int m_body = 0;
};

/// @param encoding from the header: 2 and 3 are UTF-16
/// @return the text in UTF-8; unchanged when it is not valid in that encoding
QByteArray toUtf8(const QByteArray &text, quint32 encoding)
{
    if ((encoding != 2 && encoding != 3) || text.size() % 2 != 0 || text.isEmpty()) {
        return text;
    }
    QString decoded(text.size() / 2, Qt::Uninitialized);
    if (encoding == 2) {
        qFromLittleEndian<quint16>(text.constData(), decoded.size(), decoded.data());
    } else {
        qFromBigEndian<quint16>(text.constData(), decoded.size(), decoded.data());
    }
    const QByteArray encoded = decoded.toUtf8();
    return QString::fromUtf8(encoded) == decoded ? encoded : text;
}

/// @return nothing when the record is not an entry of a schema
std::optional<StoredObject> readObject(const QByteArray &record, quint32 encoding)
{
    RecordReader reader(record);
    StoredObject stored;
    stored.object.type = toUtf8(reader.text(), encoding);
    stored.object.name = toUtf8(reader.text(), encoding);
    stored.object.table = toUtf8(reader.text(), encoding);
    const qint64 rootPage = reader.integer();
    stored.object.sql = toUtf8(reader.text(), encoding);
    if (!reader.isComplete() || rootPage < 0 || rootPage > std::numeric_limits<quint32>::max()) {
        return {};
    }
    stored.rootPage = static_cast<quint32>(rootPage);
    return stored;
}
} // namespace

std::optional<QVector<StoredObject>> readStoredSchema(const DatabaseFile &file)
{
    QVector<StoredObject> objects;
    if (file.pageCount() == 0) {
        return objects;
    }
    BTreeCursor rows(file, 1);
    if (!file.isDatabase() || !rows.isTable()) {
        return {};
    }
    constexpr int encodingOffset = 56;
    const quint32 encoding = file.headerNumber(encodingOffset);
    while (rows.next()) {
        const std::optional<StoredObject> object = readObject(rows.payload(), encoding);
        if (!object) {
            return {};
        }
        objects << *object;
    }
    if (rows.isDamaged()) {
        return {};
    }
    std::sort(
        objects.begin(), objects.end(), [](const StoredObject &left, const StoredObject &right) {
            return precedes(left.object, right.object);
        });
    return objects;
}

bool precedes(const SchemaObject &left, const SchemaObject &right)
{
    const auto key = [](const SchemaObject &object) {
        return std::make_tuple(
            object.type, object.name, object.table, object.sql.isNull(), object.sql);
    };
    return key(left) < key(right);
}
