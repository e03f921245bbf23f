#pragma once

#include <QString>

/// Why a database, or a file beside it, could not be read or changed.
struct DatabaseFailure {
    enum class Kind {
        Locked,      ///< somebody else held it for longer than the budget
        Written,     ///< somebody else has written since it was copied
        Replaced,    ///< at its path there is another file now, or none
        NoRoom,      ///< the disk is full
        NotWritable, ///< this user may not write there, or nobody may
        Damaged,     ///< SQLite does not take it for a database
        Failed,      ///< the disk fails, or memory is short
        NotFlushed,  ///< it has the new content, but a power cut may bring the old one back
        Unknown      ///< the commit failed, and so did the look at what the database has now
    };
    Kind kind;
    QString text; ///< SQLite's or the system's words for it
};

/// @param result an SQLite result code, extended or not
DatabaseFailure sqliteFailure(int result, const QString &text);

/// @param error the error number of the system
/// @param what it was that failed
DatabaseFailure systemFailure(int error, const QString &what);

/// @return the system's words for an error number
QString systemText(int error);
