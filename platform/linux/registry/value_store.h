// The values of one key, in one file. Knows nothing of handles and of where the file is.
#pragma once

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace registry {

struct Value {
    DWORD type;
    std::vector<BYTE> data;
};

// A database in write-ahead mode: a change is whole or not there, whenever the process dies, and
// waits for no disk. A loss of power may take the last changes with it, never the store. Other
// processes may have the same file open. Used by one thread at a time.
class ValueStore {
public:
    // The file is made if it is not there, for its user's eyes only: there is an access key in it.
    // A damaged one is put aside, under its name with ".damaged" added, and begun anew; one that
    // cannot be written is only read. Null when there is no way to one.
    static std::unique_ptr<ValueStore> Open(const std::string& path);

    // Names that differ only in the case of letters A to Z are the same. Nothing when there is no
    // such value, or it cannot be read.
    std::optional<Value> Read(const std::string& name);
    // False when it could not be stored.
    bool Write(const std::string& name, DWORD type, const BYTE* data, DWORD bytes);

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const;
    };
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const;
    };
    using Database = std::unique_ptr<sqlite3, CloseDatabase>;
    using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

    ValueStore() = default;

    void End();
    // These return SQLite's result codes.
    int Begin(const std::string& name, int flags);
    int Check();
    int Prepare(Statement& statement, const char* sql);

    Database database_; // before the statements, which are to be gone when it closes
    Statement read_;
    Statement write_;
};

} // namespace registry
