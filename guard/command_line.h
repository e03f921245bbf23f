#pragma once

#include <QByteArrayList>
#include <QString>
#include <QStringList>

/// What the caller wants.
struct CommandLine {
    enum class Command { Run, Status, Restore, ShowVersion, ShowHelp, Wrong };

    Command command = Command::Wrong;
    QString error;  ///< what is wrong with the call
    QString help;   ///< the text of --help
    QString target; ///< of `run`, empty to take schemaversion.txt
    bool hasTarget = false;
    QString applicationDirectory; ///< empty for the guard's own
    QString stagingDirectory;     ///< empty for none
    bool strict = false;
    bool keepDatabase = true;
    QByteArrayList acceptedCodes;
    bool fallBack = false;
    bool mend = false;
    bool dryRun = false;
    bool json = false;        ///< of `status`
    bool tellsStatus = false; ///< of `status`: end with the status of the last run
    QString inside; ///< where the guard has started itself again: "memory", "disk", empty for not
    int waitSeconds = 0;
};

/// @param arguments the whole command line, the program's name first
CommandLine parseCommandLine(const QStringList &arguments);

/// The hidden option of a guard that was started by itself, with the place as its value.
extern const char *const insideOption;
