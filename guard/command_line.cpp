#include "guard/command_line.h"
#include "guard/limits.h"

#include <QCommandLineParser>

const char *const insideOption = "inside";
const char *const onlyOption = "only";

namespace
{
const char *const description =
    "Brings the device's database to another schema version. database-migrator\n"
    "works on a copy, and the result goes into the database in one transaction.\n"
    "\n"
    "  migration-guard run [TARGET]\n"
    "      Migrates to schema version TARGET. Without TARGET the version is read\n"
    "      from schemaversion.txt in the application directory.\n"
    "  migration-guard rehearse TARGET [DATABASE...]\n"
    "      Tells how a run to TARGET would end, and what it would do (others call it\n"
    "      a dry run). Changes nothing: a copy is migrated. Without DATABASE the\n"
    "      database is this device's own, with everything as it is here. A named\n"
    "      DATABASE needs no device; what is neither given nor here is assumed.\n"
    "  migration-guard status\n"
    "      Shows the recorded version, the newest version that the program knows,\n"
    "      the kept database of before, the last run, and the last run that changed\n"
    "      the version or ended with 3 or 4. Changes nothing.\n"
    "  migration-guard restore\n"
    "      Brings the kept database of before back. A second restore brings back\n"
    "      what the first one has replaced.\n"
    "\n"
    "Exit status. rehearse ends with the status that the run would end with; of\n"
    "several databases, with the largest one.\n"
    "  0  The target is reached, nothing to look at.\n"
    "  2  The call is wrong. Nothing was started.\n"
    "  3  Nothing changed: the database is as it was. With the reason\n"
    "     commit-unknown this is not known until the disk can be read again.\n"
    "  4  The database changed, and needs a look.\n"
    "Any other status: the guard itself was ended. Unless the program was running\n"
    "without a copy, the database is the old one or the new one.";

const char *const jsonFileOption = "json-file";

/// The parser's options either have a value or have none. --json may have one, so --json=FILE
/// becomes an option of its own.
QStringList withJsonFile(QStringList arguments)
{
    const QString json = "--json=";
    for (QString &argument : arguments) {
        if (argument.startsWith(json)) {
            argument = QString("--") + jsonFileOption + '=' + argument.mid(json.size());
        }
    }
    return arguments;
}

/// @return the name of an option as the caller has written it
QString writtenName(const QString &name)
{
    return name == jsonFileOption ? QString("json") : name;
}

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
        "version",
        "Shows the version of the guard, the newest schema version and the version of SQLite.");
    const QCommandLineOption application(
        "app-dir",
        "All commands: the application directory is DIR. Without this option it is the directory of "
        "the guard itself.",
        "DIR");
    const QCommandLineOption wait(
        "wait",
        QString(
            "Run, rehearse, restore: waits at most SECONDS for other programs that hold a lock, all waits "
            "together. Without this option %1.")
            .arg(limits::waitSeconds),
        "SECONDS",
        QString::number(limits::waitSeconds));
    const QCommandLineOption strict(
        "strict",
        "Run, rehearse: if the run would end with 4, or there is no database, changes nothing and ends "
        "with 3.");
    const QCommandLineOption fallBack(
        "fall-back",
        "Run: if the database is newer than the program, brings the kept database of before back "
        "if the program knows its version, and keeps the newer one in its place. Not with --strict.");
    const QCommandLineOption json(
        "json",
        "Status, rehearse: prints JSON. Rehearse: --json=FILE writes it to FILE; several databases "
        "have one line each.");
    const QCommandLineOption withoutRows(
        "without-rows",
        "Rehearse: leaves out names, keys and contents of rows, the log and paths: a report that may "
        "leave the farm.");
    const QCommandLineOption root(
        "root",
        "Rehearse: the program, its libraries and its reference data are those of another root file "
        "system, mounted at DIR. The application directory is at the same path there.",
        "DIR");
    const QCommandLineOption program("program", "Rehearse: the program is FILE.", "FILE");
    const QCommandLineOption platform("platform", "Rehearse: the platform has this NAME.", "NAME");
    const QCommandLineOption softwareVersion(
        "software-version", "Rehearse: the device software has this VERSION.", "VERSION");
    const QCommandLineOption registration(
        "registration", "Rehearse: FILE is the registration file.", "FILE");
    const QCommandLineOption referenceData(
        "reference-data", "Rehearse: the reference-data scripts are in DIR.", "DIR");
    const QCommandLineOption result(
        "result", "Rehearse: writes the migrated copy to FILE. For one database.", "FILE");
    const QCommandLineOption jobs(
        "jobs", "Rehearse: works on N databases at once. Without this option one.", "N", "1");
    QCommandLineOption jsonFile(jsonFileOption, QString(), "FILE");
    jsonFile.setFlags(QCommandLineOption::HiddenFromHelp);
    QCommandLineOption only(onlyOption, QString(), "NUMBER");
    only.setFlags(QCommandLineOption::HiddenFromHelp);
    const QCommandLineOption exitCode(
        "exit-code", "Status: ends with the status of the last run, or with 3 without one.");
    const QCommandLineOption mend(
        "mend",
        "Run, rehearse: repairs in the copy what cut runs without the guard have left: copies of "
        "tables. Without this option they are only reported.");
    const QCommandLineOption noBackup("no-backup", "Run: does not keep the database of before.");
    const QCommandLineOption accept(
        "accept",
        "Run, rehearse: a finding with exactly this code is reported but does not count. May be repeated.",
        "CODE");
    const QCommandLineOption staging(
        "staging", "Run, rehearse: the copy is in DIR, not in memory.", "DIR");
    const QCommandLineOption dryRun("dry-run", "Restore: only prints what would change.");
    QCommandLineOption inside(insideOption, QString(), "PLACE");
    inside.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({help,         version,       application, wait,    strict,   accept,
                       fallBack,     mend,          noBackup,    staging, json,     exitCode,
                       dryRun,       withoutRows,   root,        program, platform, softwareVersion,
                       registration, referenceData, result,      jobs,    jsonFile, only,
                       inside});
    parser.addPositionalArgument("command", "run, rehearse, status or restore.");
    parser.addPositionalArgument(
        "TARGET", "Run, rehearse: the schema version to go to.", "[TARGET]");
    parser.addPositionalArgument(
        "DATABASE", "Rehearse: a database of another device.", "[DATABASE...]");

    CommandLine line;
    const bool understood = parser.parse(withJsonFile(arguments));
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
        allowed << wait << strict << accept << fallBack << mend << noBackup << staging << inside;
        line.hasTarget = !words.isEmpty();
        line.target = words.isEmpty() ? QString() : words.takeFirst();
    } else if (command == "rehearse") {
        line.command = CommandLine::Command::Rehearse;
        allowed << wait << strict << accept << mend << staging << json << jsonFile << withoutRows
                << root << program << platform << softwareVersion << registration << referenceData
                << result << jobs << only << inside;
        if (words.isEmpty()) {
            return wrong(line, "rehearse needs a schema version.");
        }
        line.hasTarget = true;
        line.target = words.takeFirst();
        if (words.contains(QString())) {
            // It would be taken for this device's own.
            return wrong(line, "A database has no name.");
        }
        line.rehearsal.databases = words;
        words.clear();
    } else if (command == "status") {
        line.command = CommandLine::Command::Status;
        allowed << json << exitCode;
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
            return wrong(line, command + " has no option " + writtenName(name) + ".");
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
    if (parser.isSet(strict) && parser.isSet(fallBack)) {
        return wrong(line, "--strict changes nothing, --fall-back does.");
    }
    for (const QString &code : parser.values(accept)) {
        if (code.isEmpty()) {
            return wrong(line, "A code to accept is empty.");
        }
        line.acceptedCodes << code.toUtf8();
    }
    for (const QCommandLineOption &path :
         {root, program, registration, referenceData, result, jsonFile}) {
        if (parser.isSet(path) && parser.value(path).isEmpty()) {
            return wrong(line, "--" + writtenName(path.names().first()) + " has no name.");
        }
    }
    RehearsalLine &rehearsal = line.rehearsal;
    if (parser.isSet(platform)) {
        rehearsal.platform = parser.value(platform);
    }
    if (parser.isSet(softwareVersion)) {
        rehearsal.softwareVersion = parser.value(softwareVersion);
    }
    rehearsal.registration = parser.value(registration);
    rehearsal.referenceData = parser.value(referenceData);
    rehearsal.program = parser.value(program);
    rehearsal.root = parser.value(root);
    rehearsal.resultFile = parser.value(result);
    rehearsal.jsonFile = parser.value(jsonFile);
    rehearsal.withRows = !parser.isSet(withoutRows);
    rehearsal.only = parser.isSet(only) ? parser.value(only).toInt() : -1;
    rehearsal.jobs = parser.value(jobs).toInt();
    if (rehearsal.jobs < 1 || rehearsal.jobs > limits::mostJobs) {
        return wrong(
            line,
            QString("Not a number of jobs from 1 to %1: ").arg(limits::mostJobs) +
                parser.value(jobs));
    }
    if (!rehearsal.resultFile.isEmpty() && rehearsal.databases.size() > 1) {
        return wrong(line, "--result is for one database.");
    }
    if (!rehearsal.root.isEmpty() && !rehearsal.program.isEmpty()) {
        return wrong(line, "--root has a program, --program is another one.");
    }
    line.keepDatabase = !parser.isSet(noBackup);
    line.fallBack = parser.isSet(fallBack);
    line.mend = parser.isSet(mend);
    line.json = parser.isSet(json) || parser.isSet(jsonFile);
    line.tellsStatus = parser.isSet(exitCode);
    line.dryRun = parser.isSet(dryRun);
    line.inside = parser.value(inside);
    return line;
}
