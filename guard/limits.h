#pragma once

#include <QtGlobal>

/// The guard's sizes and times, each with its reason.
namespace limits
{
constexpr qint64 kibibyte = 1024;
constexpr qint64 mebibyte = 1024 * kibibyte;

/// Bytes of the page cache of the connection that commits. The backup interface rewrites every
/// page, and each time the cache is full the journal is flushed. Larger: fewer flushes, more memory.
constexpr qint64 commitCache = 20 * mebibyte;

/// What staging holds from the start: the copy, and the database that the program works on.
constexpr int stagedCopies = 2;

/// The same with mending: what the program has done is judged against the mended copy.
constexpr int stagedCopiesWithMending = 3;

/// What a rehearsal holds besides what a run stages: the device's copy, the kept database, the database
/// of before, which the way back is compared with, and one to try mending on.
constexpr int rehearsedCopies = 4;

/// Where a rehearsal had too little room in memory it has so many times more at the next try.
constexpr qint64 rehearsalRoomFactor = 4;

/// The most that a walk was measured to add to the staged files at any moment, in hundredths of the
/// database's size, rounded up (bench/guard.py): 20 on databases of farms, 220 where a single table
/// that is rebuilt is the whole database.
constexpr qint64 measuredGrowthPercent = 250;

/// The same where the database has a write-ahead log, which grows while a query is being read.
constexpr qint64 measuredGrowthPercentWithWriteAheadLog = 1000;

/// And a fixed part of it, in bytes, that small databases show.
constexpr qint64 measuredGrowthBase = 1 * mebibyte;

/// Staging has so many times the measured growth, since a write that fails for want of room can look
/// like success.
constexpr qint64 growthFactor = 3;

/// So many times the measured growth has to be free whenever the guard looks, or the result is thrown
/// away. It looks again and again, not all the time: what a run takes and gives back between two
/// looks is less than its whole growth.
constexpr qint64 reserveFactor = 1;

/// What the headers of pages in a journal or a write-ahead log take at most, in hundredths of the
/// pages: 24 bytes and a part of the index for a page of 512 bytes, the smallest one.
constexpr qint64 journalHeaderPercent = 7;

/// What a commit takes besides, in bytes: the header of the journal, the record, the note, the index of
/// a write-ahead log, and blocks that are not full.
constexpr qint64 roomBesideCommit = 128 * kibibyte;

/// Before the program works on the real database, so many times what it has taken in staging has to be
/// free: the guard has looked again and again, not all the time.
constexpr qint64 directRunFactor = 2;

/// And so many bytes more, for a run that is over between two looks.
constexpr qint64 directRunReserve = 1 * mebibyte;

/// Memory that is left to the program, the guard and the rest of the device, in bytes.
constexpr qint64 memoryForProcesses = 48 * mebibyte + commitCache;

/// Bytes that are copied at once: few calls, little memory.
constexpr int copiedPiece = 1 * mebibyte;

/// What the log may gain in a run, in bytes; a walk writes a few kB.
constexpr qint64 logRoom = 1 * mebibyte;

/// How often the staged files are looked at while the program runs, in milliseconds.
constexpr int watchInterval = 5;

/// How long a process that has lost its parent may go on by itself before it is killed, in
/// milliseconds.
constexpr int momentForOrphans = 20;

/// How often a lock that somebody else holds is tried again, in milliseconds.
constexpr int lockRetryInterval = 20;

/// How long locks are waited for in all, in seconds, unless --wait says something else.
constexpr int waitSeconds = 30;

/// How often a copy is taken again because somebody wrote before the commit.
constexpr int mostCopies = 3;

/// The largest schema version that is taken for one.
constexpr int largestVersion = 999999;

/// How many changes of the version are noted in lastMigration.json: the history of an ordinary device.
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

/// How many findings, tables and unknown versions of a verdict lastMigration.json has: it holds two
/// verdicts, an entry takes 2 kB at most, and the next run has to be able to read it.
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

/// How often a rehearsal copies a database that somebody is writing to.
constexpr int mostRawCopies = 5;

/// How often a database that somebody is writing to is copied for a look at it.
constexpr int mostSnapshots = 10;
} // namespace limits
