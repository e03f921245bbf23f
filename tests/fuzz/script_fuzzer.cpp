#include "app/database_migrator.h"
#include "fuzz/fuzzer.h"
#include "fuzz/lone_migrator.h"

#include <QTextCodec>

namespace
{
QStringList executed;

QByteArray encodingOf(const QByteArray &script)
{
    // UTF-32LE is tried before UTF-16LE: its byte order mark begins with that of UTF-16LE.
    if (script.startsWith(QByteArray("\xff\xfe\0\0", 4))) {
        return "UTF-32LE";
    }
    if (script.startsWith(QByteArray("\0\0\xfe\xff", 4))) {
        return "UTF-32BE";
    }
    if (script.startsWith("\xff\xfe")) {
        return "UTF-16LE";
    }
    return script.startsWith("\xfe\xff") ? "UTF-16BE" : "UTF-8";
}

/// The statements of a script: line ends are removed, then every ";" separates two statements.
QStringList statementsOf(const QByteArray &script)
{
    // Unlike fromUtf8, a decoder ignores an incomplete character at the end of the file.
    QTextDecoder decoder(QTextCodec::codecForName(encodingOf(script)));
    return decoder.toUnicode(script).remove('\r').remove('\n').split(';');
}
} // namespace

// Runs the splitter with a migrator that only records the statements.

void DatabaseMigrator::executeOrLogText(const QString &sql)
{
    executed << sql;
}

void fuzz(const QByteArray &input)
{
    // A "*" moves the rest of the input to the place where the first piece of a long line ends. Bad
    // characters and byte order marks are removed: Qt reads them differently at the end of a block.
    QByteArray script = input;
    if (input.startsWith('*')) {
        script = QString::fromUtf8(input.mid(1)).remove(QChar::ByteOrderMark).toUtf8();
        script.prepend(QByteArray(65'536 - script.size() / 2, 'x'));
    }
    static const MemoryFile file("script.sql");
    file.write(script);
    executed.clear();

    migrator().runSqlScript(file.path());

    require(executed == statementsOf(script), "every statement and nothing else is executed");
}
