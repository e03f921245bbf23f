#include "app/database_migrator.h"
#include "fuzz/fuzzer.h"
#include "fuzz/lone_migrator.h"

#include <QTextCodec>

namespace
{
QStringList executed;

QByteArray encodingOf(const QByteArray &script)
{
    // The mark of UTF-32LE begins like that of UTF-16LE.
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

/// The statements of a script: the ends of lines go, then every ";" separates two.
QStringList statementsOf(const QByteArray &script)
{
    // A decoder, unlike fromUtf8, leaves out a character that the end of the file cuts short.
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
    // What stands behind a "*" lies where the first piece of a long line ends. Bad characters and
    // byte order marks go: how the toolkit reads them depends on where a block of the file ends.
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
