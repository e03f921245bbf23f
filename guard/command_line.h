#pragma once

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
    bool dryRun = false;
    bool insideOwnMemory = false; ///< the guard has started itself in a file system of its own
    int waitSeconds = 0;
};

/// @param arguments the whole command line, the program's name first
CommandLine parseCommandLine(const QStringList &arguments);

/// The hidden option of a guard that runs in a file system of its own.
extern const char *const insideOwnMemoryOption;
