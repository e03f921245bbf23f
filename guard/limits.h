#pragma once

#include <QtGlobal>

/// The guard's sizes and times, each with its reason.
namespace limits
{
constexpr qint64 kibibyte = 1024;
constexpr qint64 mebibyte = 1024 * kibibyte;

/// Bytes of the page cache of the connection that commits. The backup interface rewrites every
/// page, and SQLite flushes the journal each time the cache is full. A larger cache: fewer flushes,
/// more memory.
constexpr qint64 commitCache = 20 * mebibyte;

/// Databases in staging from the start: the copy, and the one that the program works on.
constexpr int stagedCopies = 2;

/// The same with mending: the result is judged against the mended copy, which is kept too.
constexpr int stagedCopiesWithMending = 3;

/// Databases that a rehearsal holds besides those that a run stages: the device's copy, the kept
/// database, the database of before for comparison with the way back, and one to try mending on.
constexpr int rehearsedCopies = 4;

/// A rehearsal that had too little room in memory tries again with this many times as much.
constexpr qint64 rehearsalRoomFactor = 4;

/// The most that walks were measured to add to the staged files, in percent of the database's size,
/// rounded up (bench/guard.py): 20 on databases of farms, 220 where one rebuilt table is the whole
/// database.
constexpr qint64 measuredGrowthPercent = 250;

/// The same for a database with a write-ahead log, which grows while a query is being read.
constexpr qint64 measuredGrowthPercentWithWriteAheadLog = 1000;

/// Added to the percentage, in bytes: small databases grow by this much whatever their size.
constexpr qint64 measuredGrowthBase = 1 * mebibyte;

/// Staging has this many times the measured growth: a write that fails for lack of room can look
/// like success.
constexpr qint64 growthFactor = 3;

/// This many times the measured growth has to be free whenever the guard looks; if not, the result
/// is thrown away. The guard looks at intervals: what a run takes and gives back between two looks
/// is less than its whole growth.
constexpr qint64 reserveFactor = 1;

/// The most that page headers in a journal or a write-ahead log take, in percent of the pages: 24
/// bytes and a part of the index for a page of 512 bytes, the smallest size.
constexpr qint64 journalHeaderPercent = 7;

/// Other bytes that a commit takes: the header of the journal, the record, the note, the index of a
/// write-ahead log, and blocks that are not full.
constexpr qint64 roomBesideCommit = 128 * kibibyte;

/// Before a direct run, this many times the room that the program took in staging has to be free:
/// the guard measured that only at intervals.
constexpr qint64 directRunFactor = 2;

/// Added to that, in bytes, for a run that ends between two looks.
constexpr qint64 directRunReserve = 1 * mebibyte;

/// Bytes of memory that stay free for the program, the guard and the rest of the device.
constexpr qint64 memoryForProcesses = 48 * mebibyte + commitCache;

/// Bytes that are copied at a time: few calls, little memory.
constexpr int copiedPiece = 1 * mebibyte;

/// Bytes that the log may grow by in a run; a walk writes a few kB.
constexpr qint64 logRoom = 1 * mebibyte;

/// Milliseconds between two looks at the staged files while the program runs.
constexpr int watchInterval = 5;

/// Milliseconds that a process whose parent has ended may go on before it is killed.
constexpr int momentForOrphans = 20;

/// Milliseconds between two attempts to take a lock that another process holds.
constexpr int lockRetryInterval = 20;

/// Seconds to wait for locks in all, unless --wait gives another number.
constexpr int waitSeconds = 30;

/// How many copies are made at most, when another process writes before the commit.
constexpr int mostCopies = 3;

/// The largest number that is accepted as a schema version.
constexpr int largestVersion = 999999;

/// How many changes of version lastMigration.json keeps: the whole history of an ordinary device.
constexpr int notedChanges = 20;

/// How many keys of a table `restore` prints; the rest is counted.
constexpr int printedKeys = 20;

/// How many characters of a name or a value `restore` prints.
constexpr int printedCharacters = 64;

/// The longest schemaversion.txt that is read, in bytes: a longer one holds something else.
constexpr qint64 largestTarget = 4 * kibibyte;

/// The longest of the guard's own JSON files that is read, in bytes. The note of a run names files of
/// the pool: thousands of them fit.
constexpr qint64 largestJson = 16 * mebibyte;

/// How many findings, tables and unknown versions of a verdict lastMigration.json keeps at most.
/// The next run has to be able to read it; it holds two verdicts, and an entry takes 2 kB at most.
constexpr int recordedEntries = 1000;

/// The longest reference-data script that is read, in bytes: the verdict looks for names in it.
constexpr qint64 largestScript = 16 * mebibyte;

/// The longest log of a direct run that a rehearsal reads, in bytes: a walk writes a few kB.
constexpr qint64 largestLog = 64 * mebibyte;

/// The longest platform file that is read, in bytes.
constexpr qint64 largestPlatform = 4 * kibibyte;

/// How many databases are rehearsed at once: each takes three of the 1,024 descriptors that a process
/// usually may have.
constexpr int mostJobs = 256;

/// How often a rehearsal tries to copy a database that another process is writing to.
constexpr int mostRawCopies = 5;

/// How often a snapshot tries to copy a database that another process is writing to.
constexpr int mostSnapshots = 10;
} // namespace limits
