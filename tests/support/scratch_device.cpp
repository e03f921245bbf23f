#include "support/scratch_device.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QVariant>

#include <sqlite3.h>

const QString ScratchDevice::databasePath = "/app/databases/my.db.sqlite";
const QString ScratchDevice::logPath = "/app/databases/sqlMigrationErrorLog.txt";
const QString ScratchDevice::softwareVersionPath = "/app/quillmoor/softwareversion.txt";
const QString ScratchDevice::platformPath = "/etc/harlo/platform";
const QString ScratchDevice::registrationPath = "/Harlo/registration.xml";
const QString ScratchDevice::poolPath = "/usr/bin/harlo/pool";

namespace
{
void clear(const QString &directory, const QString &kept = QString())
{
    const auto entries = QDir(directory).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        if (entry.fileName() == kept) {
            continue;
        }
        if (entry.isDir() && !entry.isSymLink()) {
            QDir(entry.filePath()).removeRecursively();
        } else {
            QFile::remove(entry.filePath());
        }
    }
}

/// A connection of the test's own.
class Connection
{
public:
    Connection()
    {
        if (sqlite3_open(ScratchDevice::databasePath.toUtf8(), &m_handle) != SQLITE_OK) {
            qFatal("the scratch database cannot be opened");
        }
        // The database that a test prepares need not survive a power cut.
        run("PRAGMA synchronous = OFF");
    }
    ~Connection() { sqlite3_close(m_handle); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void run(const QByteArray &statements)
    {
        char *error = nullptr;
        if (sqlite3_exec(m_handle, statements, nullptr, nullptr, &error) != SQLITE_OK) {
            qFatal("%s in: %s", error, statements.constData());
        }
    }

    QStringList rows(const QByteArray &query)
    {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(m_handle, query, -1, &statement, nullptr) != SQLITE_OK) {
            qFatal("%s in: %s", sqlite3_errmsg(m_handle), query.constData());
        }
        QStringList rows;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            QStringList values;
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                values << literal(sqlite3_column_value(statement, column));
            }
            rows << values.join(", ");
        }
        sqlite3_finalize(statement);
        return rows;
    }

    /// @return column 0 of every row as it is
    QStringList texts(const QByteArray &query)
    {
        QStringList texts = rows(query);
        for (QString &text : texts) {
            text = text.mid(1, text.size() - 2).replace("''", "'");
        }
        return texts;
    }

private:
    static QString literal(sqlite3_value *value)
    {
        switch (sqlite3_value_type(value)) {
        case SQLITE_NULL:
            return "NULL";
        case SQLITE_INTEGER:
            return QString::number(sqlite3_value_int64(value));
        case SQLITE_FLOAT:
            return real(sqlite3_value_double(value));
        case SQLITE_TEXT:
            return "'" + text(value).replace("'", "''") + "'";
        default:
            return "x'" + bytes(value).toHex() + "'";
        }
    }

    /// The shortest text that is read as the same number; it never looks like an integer.
    static QString real(double value)
    {
        const QString text = QString::number(value, 'g', QLocale::FloatingPointShortest);
        return text.contains(QRegularExpression("[.en]")) ? text : text + ".0";
    }

    static QString text(sqlite3_value *value)
    {
        const QByteArray utf8 = bytes(value);
        // With its size: without it the text would end at a NUL.
        return utf8.isEmpty() ? QString() : QString::fromUtf8(utf8.constData(), utf8.size());
    }

    static QByteArray bytes(sqlite3_value *value)
    {
        const auto *bytes = static_cast<const char *>(sqlite3_value_blob(value));
        return QByteArray(bytes, sqlite3_value_bytes(value));
    }

    sqlite3 *m_handle = nullptr;
};

struct Refusal {
    int action;
    QByteArray object;
    QByteArray part;
};
std::vector<Refusal> refusals;

int authorize(void *, int action, const char *first, const char *second, const char *, const char *)
{
    for (const Refusal &refusal : refusals) {
        if (refusal.action == action && (refusal.object.isEmpty() || refusal.object == first) &&
            (refusal.part.isEmpty() || refusal.part == second)) {
            return SQLITE_DENY;
        }
    }
    return SQLITE_OK;
}

int instructionsLeft = 0;

int countInstruction(void *)
{
    return --instructionsLeft == 0;
}

/// @return the migrator's own connection
sqlite3 *connection()
{
    const QVariant handle = QSqlDatabase::database().driver()->handle();
    return *static_cast<sqlite3 *const *>(handle.constData());
}
} // namespace

QByteArray differenceOf(const QStringList &actual, const QStringList &expected)
{
    QStringList difference;
    for (int i = 0; i < qMax(actual.size(), expected.size()); ++i) {
        if (actual.value(i) != expected.value(i) || i >= actual.size() || i >= expected.size()) {
            difference << QString("line %1\n  actual:   %2\n  expected: %3")
                              .arg(
                                  QString::number(i + 1),
                                  actual.value(i, "(none)"),
                                  expected.value(i, "(none)"));
        }
    }
    return difference.join("\n").toUtf8();
}

ScratchDevice::ScratchDevice()
{
    if (!qEnvironmentVariableIsSet("SCRATCH_DEVICE")) {
        qFatal("this test removes files at fixed paths: start it with ctest");
    }
    clear("/app", QFileInfo("/proc/self/exe").symLinkTarget().section('/', -1));
    clear("/Harlo");
    clear("/etc/harlo");
    clear(poolPath);
    QDir("/app").mkdir("databases");
}

ScratchDevice::~ScratchDevice()
{
    stop();
}

void ScratchDevice::writeFile(const QString &path, const QByteArray &content)
{
    QFileInfo(path).dir().mkpath(".");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("%s cannot be written", qPrintable(path));
    }
}

QByteArray ScratchDevice::readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void ScratchDevice::sql(const QByteArray &statements)
{
    Connection().run(statements);
}

void ScratchDevice::recordVersion(int version)
{
    const QByteArray number = QByteArray::number(version);
    sql("CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);"
        "INSERT INTO tableVersion VALUES('mainSqlDb', " +
        number + ", '');INSERT INTO tableVersion VALUES('altSqlDb', " + number + ", '');");
}

QStringList ScratchDevice::rows(const QByteArray &query)
{
    return Connection().rows(query);
}

QStringList ScratchDevice::schema()
{
    return Connection().texts("SELECT sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid");
}

QString ScratchDevice::createText(const QByteArray &table)
{
    return Connection()
        .texts("SELECT sql FROM sqlite_master WHERE type = 'table' AND name = '" + table + "'")
        .value(0);
}

QStringList ScratchDevice::contents(const QList<QByteArray> &tables)
{
    QStringList lines;
    for (const QByteArray &table : tables) {
        const QString text = createText(table);
        if (!text.isEmpty()) {
            lines << text << rows("SELECT * FROM " + table);
        }
    }
    return lines;
}

QStringList ScratchDevice::dump()
{
    Connection connection;
    QStringList lines = schema();
    const auto tables =
        connection.texts("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY rowid");
    for (const QString &table : tables) {
        lines << table;
        lines << connection.rows("SELECT * FROM \"" + table.toUtf8() + "\"");
    }
    return lines;
}

void ScratchDevice::overwriteLeaf(const QByteArray &table, int leaf, int copiedLeaf)
{
    const QStringList pages = rows(
        "SELECT pageno FROM dbstat WHERE name = '" + table +
        "' AND pagetype = 'leaf' ORDER BY path");
    const int size = rows("PRAGMA page_size").value(0).toInt();
    const auto start = [&](int page) { return (pages.value(page).toInt() - 1) * size; };
    QByteArray file = readFile(databasePath);
    const QByteArray content =
        copiedLeaf < 0 ? QByteArray(size, '\xff') : file.mid(start(copiedLeaf), size);
    writeFile(databasePath, file.replace(start(leaf), size, content));
}

DatabaseMigrator &ScratchDevice::start(const QStringList &arguments)
{
    stop();
    m_arguments = {"database-migrator"};
    for (const QString &argument : arguments) {
        m_arguments.push_back(argument.toLocal8Bit());
    }
    m_argumentPointers.clear();
    for (QByteArray &argument : m_arguments) {
        m_argumentPointers.push_back(argument.data());
    }
    m_argumentCount = static_cast<int>(m_arguments.size());
    m_argumentPointers.push_back(nullptr);
    m_migrator = std::make_unique<DatabaseMigrator>(m_argumentCount, m_argumentPointers.data());
    return *m_migrator;
}

void ScratchDevice::stop()
{
    refusals.clear();
    m_migrator.reset();
    if (QSqlDatabase::contains()) {
        QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
    }
}

void ScratchDevice::refuse(int action, const QByteArray &object, const QByteArray &part)
{
    refusals.push_back({action, object, part});
    sqlite3_set_authorizer(connection(), authorize, nullptr);
}

void ScratchDevice::interruptAfter(int instructions)
{
    instructionsLeft = instructions;
    sqlite3_progress_handler(connection(), 1, countInstruction, nullptr);
}

void ScratchDevice::allowAll()
{
    refusals.clear();
    sqlite3_set_authorizer(connection(), nullptr, nullptr);
}

QString ScratchDevice::takeLog()
{
    QFile log(logPath);
    if (!log.open(QIODevice::ReadOnly) || !log.seek(m_logTaken)) {
        return QString();
    }
    const QByteArray news = log.readAll();
    m_logTaken += news.size();
    // With its size: without it the text would end at a NUL.
    return QString::fromUtf8(news.constData(), news.size());
}

QStringList ScratchDevice::takeLogLines()
{
    QStringList lines = takeLog().split("\n");
    const QString unfinished = lines.takeLast();
    return unfinished.isEmpty() ? lines : lines << unfinished + " (without an end)";
}
