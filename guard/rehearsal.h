#pragma once

#include "guard/mending.h"
#include "guard/migration.h"
#include "guard/rehearsed_device.h"
#include "guard/run_record.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

/// The caller's options for a rehearsal.
struct RehearsalOptions {
    RehearsedDeviceOptions device;
    int target = 0;
    bool strict = false;
    bool mend = false;
    QByteArrayList acceptedCodes;
    QString place;      ///< an empty directory for everything that is written
    QString resultFile; ///< an empty file for the migrated database, or empty
};

/// A step of the walk.
struct RehearsedStep {
    enum class Outcome { Done, Failed, NotReached };
    int version = 0;
    bool isForward = true;
    Outcome outcome = Outcome::Done;
    QByteArrayList lines; ///< the log's words for a failed one
};

/// What going back from the result to the version of before does not restore.
struct WayBack {
    int target = 0;
    RecordedVersion to;
    Verdict verdict; ///< the database of before against what came back
};

/// How a run would end, and what it would do.
struct Rehearsal {
    RunRecord record;
    bool isWrongCall = false;
    bool lackedRoom = false;   ///< the place was too small: no other result is known
    bool resultIsLost = false; ///< the file for the result could not be written
    QString database;          ///< path
    qint64 databaseBytes = 0;
    QString journalMode; ///< empty when it cannot be read
    QStringList assumed;
    QString platform;
    QString softwareVersion;
    QByteArray log; ///< the text that the program has logged
    QVector<RehearsedStep> steps;
    QVector<Mending> mendings; ///< what `run --mend` would do
    std::optional<WayBack> wayBack;
    QJsonObject measured;
};

/// Runs the guard on a copy of the device with the same code as a run on the device itself. It
/// writes only into its place and the result's file.
Rehearsal rehearse(const RehearsalOptions &options);
