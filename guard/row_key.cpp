#include "guard/row_key.h"

#include <QCryptographicHash>

#include <cstring>

namespace
{
template <typename Number> void addNumber(QCryptographicHash &hash, Number number)
{
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    hash.addData(bytes, sizeof number);
}

/// @return false when there was too little memory to read the value
bool addValue(QCryptographicHash &hash, sqlite3_value *value, bool isUtf16)
{
    const int storageClass = sqlite3_value_type(value);
    addNumber(hash, storageClass);
    if (storageClass == SQLITE_INTEGER) {
        addNumber(hash, sqlite3_value_int64(value));
    } else if (storageClass == SQLITE_FLOAT) {
        addNumber(hash, sqlite3_value_double(value));
    } else if (storageClass != SQLITE_NULL) {
        // The function for the other encoding would convert the text, which changes its bytes.
        const int size = isUtf16 ? sqlite3_value_bytes16(value) : sqlite3_value_bytes(value);
        const void *bytes = sqlite3_value_blob(value);
        if (size > 0 && !bytes) {
            return false;
        }
        addNumber(hash, size);
        hash.addData(static_cast<const char *>(bytes), size);
    }
    return true;
}

void rowKey(sqlite3_context *context, int count, sqlite3_value **values)
{
    const bool isUtf16 = sqlite3_user_data(context) != nullptr;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (int index = 0; index < count; ++index) {
        if (!addValue(hash, values[index], isUtf16)) {
            sqlite3_result_error_nomem(context);
            return;
        }
    }
    const QByteArray key = hash.result();
    sqlite3_result_blob(context, key.constData(), key.size(), SQLITE_TRANSIENT);
}

bool holdsUtf16(sqlite3 *connection)
{
    bool isUtf16 = false;
    sqlite3_stmt *encoding = nullptr;
    sqlite3_prepare_v2(connection, "PRAGMA encoding", -1, &encoding, nullptr);
    if (sqlite3_step(encoding) == SQLITE_ROW) {
        const auto *name = reinterpret_cast<const char *>(sqlite3_column_text(encoding, 0));
        isUtf16 = name && std::strcmp(name, "UTF-8") != 0;
    }
    sqlite3_finalize(encoding);
    return isUtf16;
}
} // namespace

int addRowKey(sqlite3 *connection)
{
    static char utf16;
    return sqlite3_create_function_v2(
        connection,
        "row_key",
        -1,
        SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY,
        holdsUtf16(connection) ? &utf16 : nullptr,
        rowKey,
        nullptr,
        nullptr,
        nullptr);
}

QByteArray rowKeyOf(const QByteArrayList &values)
{
    // An SQLite function takes at most 100 arguments.
    constexpr int mostArguments = 100;
    if (values.size() <= mostArguments) {
        return "row_key(" + values.join(", ") + ")";
    }
    QByteArrayList keys;
    for (int first = 0; first < values.size(); first += mostArguments) {
        keys << rowKeyOf(values.mid(first, mostArguments));
    }
    return rowKeyOf(keys);
}
