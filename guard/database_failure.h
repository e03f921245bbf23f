#pragma once

#include <QString>

/// Why a database, or a file beside it, could not be read or changed.
struct DatabaseFailure {
    enum class Kind {
        Locked,      ///< another process held a lock for longer than the budget
        Written,     ///< another process has written to it since it was copied
        Replaced,    ///< there is another file at its path now, or none
        NoRoom,      ///< the disk is full
        NotWritable, ///< this user may not write there, or it is read-only
        Damaged,     ///< SQLite does not accept it as a database
        Failed,      ///< the disk failed, or there was too little memory
        NotFlushed,  ///< it has the new content, but a power cut may bring the old one back
        Unknown      ///< the commit failed, and the database could not be read after it
    };
    Kind kind;
    QString text; ///< SQLite's or the system's words for it
};

/// @param result an SQLite result code, extended or not
DatabaseFailure sqliteFailure(int result, const QString &text);

/// @param error the error number of the system
/// @param what names the operation that failed
DatabaseFailure systemFailure(int error, const QString &what);

/// @return the system's words for an error number
QString systemText(int error);
