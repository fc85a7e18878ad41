#pragma once

#include <array>
#include <string>

#include <sys/types.h>

/// The files of one database: the database itself, its write-ahead log and the index of that log. Belongs to
/// whoever holds the handle's lock.
class DatabaseFiles {
public:
    explicit DatabaseFiles(std::string path);

    /// Makes an empty file that its owner alone may read, or sees that what is there is a regular file, and
    /// takes from it, its log and the index what others may do with them. False with the reason where there
    /// is not a file to be opened.
    [[nodiscard]] bool Prepare(std::string& reason);

    /// Takes what is there for the files of the database that was opened just now.
    void Remember();
    /// True where the database can be opened for writing. To be asked only where it is closed after a yes:
    /// a look takes the locks away that SQLite holds.
    [[nodiscard]] bool CanBeWritten() const;
    /// False where one of the files is gone or is another one: a change would go where nobody finds it. Looks
    /// at their directory alone while nothing was made, removed or renamed in it.
    [[nodiscard]] bool AreInPlace();

private:
    struct Identity {
        dev_t device = 0;
        ino_t number = 0;
        friend bool operator==(const Identity&, const Identity&) = default;
    };
    /// A directory and when its names changed.
    struct Stamp {
        Identity directory;
        int64_t seconds = 0;
        int64_t nanoseconds = 0;
        friend bool operator==(const Stamp&, const Stamp&) = default;
    };
    static constexpr std::size_t kFiles = 3;

    [[nodiscard]] static Identity Look(const std::string& path);
    [[nodiscard]] Stamp LookAtDirectory() const;
    [[nodiscard]] bool LookAtFiles();
    void FindNames();

    const std::string path_;
    std::array<std::string, kFiles> names_;
    std::array<Identity, kFiles> known_;
    std::string directory_;  // empty where a link leads to the database from another one
    Stamp seen_;             // of the directory while the files were in place; nothing where it was too young
};
