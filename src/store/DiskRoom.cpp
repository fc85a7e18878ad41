#include "store/DiskRoom.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace {

int64_t Ask(DBConnection& connection, const char* pragma) {
    int64_t number = 0;
    if (const GenSqlResult* const rows = connection.Query(pragma, true)) {
        static_cast<void>(rows->GetColumn(0, number));  // each of these has one row
    }
    return number;
}

}  // namespace

int64_t LiveBytes(DBConnection& connection) {
    return (Ask(connection, "pragma page_count") - Ask(connection, "pragma freelist_count")) *
           Ask(connection, "pragma page_size");
}

int64_t FreeBytes(const LumString& directory) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(std::string(directory.View()), error);
    return error ? -1 : static_cast<int64_t>(space.available);
}
