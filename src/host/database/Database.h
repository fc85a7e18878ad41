#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

class LumDebug;

/// How hard a commit is pushed to the disk.
enum class DBSynchronous : uint8_t {
    kFull,    ///< a change survives a loss of power once DBAwaitDurable has confirmed it
    kNormal,  ///< a committed change survives the end of the process; a loss of power may take the last ones
};

/// What a statement returned: rows in memory, buffered whole, so that they can be read while no lock is held
/// and no statement is open. Owned by the DBConnection that made it. Belongs to one thread at a time.
///
/// A cell is read as whatever type is asked for, converted as SQLite's column functions do: NULL reads as
/// empty text, 0, 0.0, false; a text as the number at its start; a bool is true where the whole number is not
/// 0. Right after the query the first row is selected. A row past the end and a column out of range answer
/// false and leave the selection and the output untouched.
class LUM_API GenSqlResult {
public:
    GenSqlResult() = default;
    GenSqlResult(const GenSqlResult&) = delete;
    GenSqlResult& operator=(const GenSqlResult&) = delete;
    virtual ~GenSqlResult() = default;

    [[nodiscard]] virtual uint32_t GetRowCount() const = 0;
    [[nodiscard]] virtual bool SelectRow(uint32_t index) = 0;
    [[nodiscard]] virtual bool SelectFirstRow() = 0;
    [[nodiscard]] virtual bool GetColumn(uint32_t column, LumString& value) const = 0;
    [[nodiscard]] virtual bool GetColumn(uint32_t column, int64_t& value) const = 0;
    [[nodiscard]] virtual bool GetColumn(uint32_t column, double& value) const = 0;
    [[nodiscard]] virtual bool GetColumn(uint32_t column, bool& value) const = 0;

    [[nodiscard]] virtual uint32_t GetColumnCount() const = 0;
    /// The index of the column of that name, letters A to Z folded; false, and `column` untouched, where none
    /// is.
    [[nodiscard]] virtual bool FindColumn(const LumString& name, uint32_t& column) const = 0;
};

/// One database and what it takes to reach it. Configured once, before connections are made; from then on any
/// number of threads may make connections at once. Must outlive its connections. Nothing is opened before the
/// first statement, and a database that could not be opened is tried again by the next one. Where the file,
/// its log or the log's index was removed or replaced, the next change fails and says so, and the statement
/// after it opens what is there. A change that finds the disk full is tried once more after the log has been
/// cut back.
class LUM_API DBConnectionPool {
public:
    /// How long statements wait for another process that holds the database before they fail, in
    /// milliseconds. Statements that queue up meanwhile do not wait as long each: once one has waited in vain
    /// the others fail soon, for as long as the database is held.
    static constexpr int kBusyTimeoutMs = 5000;

    /// Told how changes go, on the thread that made the change and after the statement's locks are free.
    /// `reason` says why one failed on account of the machine (a full disk, a file that is gone, another
    /// process that holds the database); it is empty for the first that succeeds after that.
    using ChangeAction = void (*)(const LumString& reason);

    DBConnectionPool();
    DBConnectionPool(const DBConnectionPool&) = delete;
    DBConnectionPool& operator=(const DBConnectionPool&) = delete;
    ~DBConnectionPool();

    /// The logger, which must outlive the pool, that gets one error line for each statement that fails.
    void SetDebug(LumDebug& debug);

    /// To be set before there are connections; null for none.
    void SetChangeAction(ChangeAction action);

    /// How often the shared file of serial connections was opened: more than before where it was another file
    /// in the meantime, or could not be used any more.
    [[nodiscard]] uint32_t GetOpenCount() const;

    /// Selects the database. `type` "SQLITE23" is SQLite 3 and the only one; `database` is the path of its
    /// file, which is made with mode 0600 if missing. The other arguments have no meaning for it. False, with
    /// an error line, for another type. Closes what a former call had opened.
    bool SetDatabase(const LumString& type, const LumString& server, const LumString& database,
                     const LumString& user, const LumString& password, uint32_t port);

    /// With `serial` all connections share one handle and one statement runs at a time, in the order of
    /// calls; so do transactions, which is why whoever opens one keeps other threads out with a lock of its
    /// own. Without, each connection has a handle for itself. Making a connection never waits for another one
    /// to go away.
    void SetSerialConnections(bool serial);

    /// The setting of every database opened from now on, in all pools of the process. At first it is kFull.
    static void SetSynchronous(DBSynchronous synchronous);

private:
    friend class DBConnection;
    class Impl;

    std::unique_ptr<Impl> impl_;
};

/// The rows in which a database keeps its version, by name, the number that weighs most first.
inline constexpr std::array<const char*, 4> kDatabaseVersionNames = {
    "DatabaseVersionMajor", "DatabaseVersionMinor", "DatabaseRevision", "DatabaseBuildNumber"};

/// A connection for the time of one routine. Belongs to one thread at a time.
class LUM_API DBConnection {
public:
    /// Told after each version of RunUpgrade: how many are done, of how many.
    using UpgradeProgress = void (*)(uint32_t done, uint32_t total);

    explicit DBConnection(DBConnectionPool& pool);
    DBConnection(const DBConnection&) = delete;
    DBConnection& operator=(const DBConnection&) = delete;
    /// Rolls an open transaction of this connection back and frees its results.
    ~DBConnection();

    /// Asked every so often while a statement runs: the share of the database that it has read so far, in
    /// percent. False ends the statement.
    using Watch = std::function<bool(uint32_t percent)>;

    /// Runs exactly one statement. Null where it fails, and then one error line of the pool's logger says
    /// why, with the statement cut at 500 characters and a question mark for each value in it, and a trace
    /// line shows it as it stands (no line where `quiet`). Else its rows, none for a statement that returns
    /// none; owned by this connection. Refused: a null byte in the text, and anything but blanks and one
    /// semicolon after the statement.
    [[nodiscard]] GenSqlResult* Query(const LumString& sql, bool quiet = false);
    /// The same for a statement that takes long. Null, and no line, where `watch` has ended it.
    [[nodiscard]] GenSqlResult* QueryWatched(const LumString& sql, const Watch& watch);

    /// Takes the write-ahead log into the database and cuts it back to nothing. False where others read from
    /// it, or the database cannot be written; without a line in the log.
    bool CutLogBack();

    [[nodiscard]] bool BeginTransaction();
    [[nodiscard]] bool CommitTransaction();
    [[nodiscard]] bool RollbackTransaction();

    /// Runs the entries of an ini section, one statement each, in file order. With `once` an entry that has
    /// run is remembered by section and name in the table IniScriptLog, in the transaction of its statement,
    /// and not run again; where its text has changed since, a warning says so. A statement that fails is
    /// logged, tried again next time, and does not keep the others from running. True where none failed.
    bool RunIniScripts(const LumString& iniPath, const LumString& section, bool once);

    /// Brings a database up by the entries of an ini section, named major.minor.revision.build with an
    /// optional -label. Entries above the recorded version run in ascending order; all entries of one
    /// version, and the write of that version to the rows kDatabaseVersionNames of `table`, are one
    /// transaction. The first failure stops the run and is logged. Where no version is recorded nothing runs,
    /// with one warning. `progress` may be null. True where nothing failed.
    bool RunUpgrade(const LumString& table, const LumString& nameColumn, const LumString& valueColumn,
                    const LumString& iniPath, const LumString& section, UpgradeProgress progress);

    /// True where something that this connection was asked for failed because of the disk, the files or
    /// another process, a script's ini file that could not be read included, rather than of what it was.
    [[nodiscard]] bool HasFailedByMachine() const;

private:
    class Impl;

    std::unique_ptr<Impl> impl_;
};

/// Waits until every change that this thread has committed, in any pool, survives a loss of power. Threads
/// that wait at once share one sync. To be called without a lock, as it waits for the disk. True at once
/// where nothing waits, and with DBSynchronous::kNormal.
///
/// False where a sync failed; one error line of the pool's logger has said so. Nobody knows then what the
/// disk holds of the change. The database is opened anew and proved sound before its next statement runs.
LUM_API bool DBAwaitDurable();

/// True where DBAwaitDurable has not failed on this thread since this was last asked: for the end of an
/// action, whose routines waited on their own.
[[nodiscard]] LUM_API bool DBTakeDurable();

/// While one lives, the changes that this thread leaves to its caller are not waited
/// for one by one: whoever made it calls DBAwaitDurable for many of them at once. On the stack of one thread;
/// they nest.
class LUM_API DBDurabilityDelay {
public:
    DBDurabilityDelay();
    DBDurabilityDelay(const DBDurabilityDelay&) = delete;
    DBDurabilityDelay& operator=(const DBDurabilityDelay&) = delete;
    ~DBDurabilityDelay();

    [[nodiscard]] static bool IsActive();
};
