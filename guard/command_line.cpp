#include "guard/command_line.h"
#include "guard/limits.h"

#include <QCommandLineParser>

const char *const insideOption = "inside";

namespace
{
const char *const description =
    "Runs database-migrator on a copy of the device's database and brings the result into the real "
    "one in a single transaction.\n\n"
    "  migration-guard run [TARGET]  migrate; without TARGET to the version in schemaversion.txt\n"
    "  migration-guard status        recorded version, kept database, last run\n"
    "  migration-guard restore       bring the kept database of before back\n\n"
    "Exit status: 0 target reached, nothing to look at; 2 wrong call; 3 nothing changed; 4 changed,\n"
    "but look at it. Treat any other one like 3.";

CommandLine wrong(CommandLine line, const QString &error)
{
    line.command = CommandLine::Command::Wrong;
    line.error = error;
    return line;
}
} // namespace

CommandLine parseCommandLine(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    const QCommandLineOption help({"h", "help"}, "Shows this text.");
    const QCommandLineOption version(
        "version", "Shows the versions of the guard, the newest schema and the SQLite library.");
    const QCommandLineOption application(
        "app-dir", "The application directory, instead of the guard's own.", "DIR");
    const QCommandLineOption wait(
        "wait",
        QString("Run, restore: how long locks of others are waited for, %1 without it.")
            .arg(limits::waitSeconds),
        "SECONDS",
        QString::number(limits::waitSeconds));
    const QCommandLineOption strict(
        "strict",
        "Run: change nothing where the database could not be guarded or the result would "
        "have to be looked at.");
    const QCommandLineOption noBackup("no-backup", "Run: do not keep the database of before.");
    const QCommandLineOption staging(
        "staging", "Run: work in this directory instead of memory.", "DIR");
    const QCommandLineOption dryRun("dry-run", "Restore: only tell what would happen.");
    QCommandLineOption inside(insideOption, QString(), "PLACE");
    inside.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions(
        {help, version, application, wait, strict, noBackup, staging, dryRun, inside});
    parser.addPositionalArgument("command", "run, status or restore.");
    parser.addPositionalArgument("TARGET", "Run: the schema version to go to.", "[TARGET]");

    CommandLine line;
    const bool understood = parser.parse(arguments);
    line.help = parser.helpText();
    if (!understood) {
        return wrong(line, parser.errorText());
    }
    if (parser.isSet(help) || parser.isSet(version)) {
        line.command =
            parser.isSet(help) ? CommandLine::Command::ShowHelp : CommandLine::Command::ShowVersion;
        line.applicationDirectory = parser.value(application);
        return line;
    }
    QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        return wrong(line, "There is no command.");
    }
    const QString command = words.takeFirst();
    QList<QCommandLineOption> allowed = {application};
    if (command == "run") {
        line.command = CommandLine::Command::Run;
        allowed << wait << strict << noBackup << staging << inside;
        line.hasTarget = !words.isEmpty();
        line.target = words.isEmpty() ? QString() : words.takeFirst();
    } else if (command == "status") {
        line.command = CommandLine::Command::Status;
    } else if (command == "restore") {
        line.command = CommandLine::Command::Restore;
        allowed << wait << dryRun;
    } else {
        return wrong(line, "There is no command " + command + ".");
    }
    if (!words.isEmpty()) {
        return wrong(line, "There is one argument too many: " + words.first());
    }
    QStringList allowedNames;
    for (const QCommandLineOption &option : allowed) {
        allowedNames += option.names();
    }
    for (const QString &name : parser.optionNames()) {
        if (!allowedNames.contains(name)) {
            return wrong(line, command + " has no option " + name + ".");
        }
    }
    bool isNumber = false;
    line.waitSeconds = parser.value(wait).toInt(&isNumber);
    if (!isNumber || line.waitSeconds < 0) {
        return wrong(line, "Not a number of seconds: " + parser.value(wait));
    }
    if (parser.isSet(application) && parser.value(application).isEmpty()) {
        return wrong(line, "The application directory has no name.");
    }
    if (parser.isSet(staging) && parser.value(staging).isEmpty()) {
        return wrong(line, "The staging directory has no name.");
    }
    line.applicationDirectory = parser.value(application);
    line.stagingDirectory = parser.value(staging);
    line.strict = parser.isSet(strict);
    line.keepDatabase = !parser.isSet(noBackup);
    line.dryRun = parser.isSet(dryRun);
    line.inside = parser.value(inside);
    return line;
}
