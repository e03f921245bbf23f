#pragma once

#include <QByteArrayList>
#include <QString>
#include <QStringList>

#include <optional>

/// What to rehearse: the options that only `rehearse` has.
struct RehearsalLine {
    QStringList databases; ///< empty for this device's own
    std::optional<QString> platform;
    std::optional<QString> softwareVersion;
    QString registration; ///< this and the next ones are paths, empty to use those of the device
    QString referenceData;
    QString program;
    QString root;
    QString resultFile; ///< empty for none
    QString jsonFile;   ///< empty for standard output
    bool withRows = true;
    int jobs = 1;
    int only = -1; ///< the number of the database, when this process is for one of several
};

/// What the caller wants.
struct CommandLine {
    enum class Command { Run, Rehearse, Status, Restore, ShowVersion, ShowHelp, Wrong };

    Command command = Command::Wrong;
    QString error;  ///< what is wrong with the call
    QString help;   ///< the text of --help
    QString target; ///< of `run` and `rehearse`, empty to read schemaversion.txt
    bool hasTarget = false;
    QString applicationDirectory; ///< empty for the guard's own
    QString stagingDirectory;     ///< empty for none
    bool strict = false;
    bool keepDatabase = true;
    QByteArrayList acceptedCodes;
    bool fallBack = false;
    bool mend = false;
    bool dryRun = false;
    bool json = false;        ///< of `status` and `rehearse`
    bool tellsStatus = false; ///< of `status`: end with the status of the last run
    QString inside; ///< where the guard runs itself again: "memory", "disk"; empty for not
    int waitSeconds = 0;
    RehearsalLine rehearsal;
};

/// @param arguments the whole command line, the program's name first
CommandLine parseCommandLine(const QStringList &arguments);

/// The hidden option with which the guard starts itself again; its value is the place.
extern const char *const insideOption;

/// The hidden option of a process that rehearses one of several databases, with its number from 0.
extern const char *const onlyOption;
