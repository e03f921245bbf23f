#include "app/database_migrator.h"
#include "fuzz/fuzzer.h"
#include "fuzz/lone_migrator.h"

#include <QTextCodec>

namespace
{
QStringList executed;

/// What a script's statements are: every end of line goes, then every ";" separates two.
QStringList statementsOf(QByteArray script)
{
    // A decoder, unlike fromUtf8, leaves out a character that the end of the file cuts short.
    QTextDecoder decoder(QTextCodec::codecForName("UTF-8"));
    QString text = decoder.toUnicode(script.replace("\r", ""));
    return text.remove('\n').split(';');
}
} // namespace

// The splitter stands here beside a migrator that only records the statements.

bool DatabaseMigrator::executeOrLogError(const QString &sql)
{
    executed << sql;
    return true;
}

void fuzz(const QByteArray &input)
{
    // What stands behind a "*" is repeated, to a line that is longer than what is read at once. Its
    // characters are made whole: how a bad one is read depends on where a block of the file ends.
    QByteArray script = input;
    if (input.startsWith('*') && input.size() > 1) {
        const QByteArray piece = QString::fromUtf8(input.mid(1).replace('\0', ' ')).toUtf8();
        script = piece.repeated(70'000 / piece.size() + 1);
    }
    static const MemoryFile file("script.sql");
    file.write(script);
    executed.clear();

    migrator().runSqlScript(file.path());

    require(executed == statementsOf(script), "every statement and nothing else is executed");
}
