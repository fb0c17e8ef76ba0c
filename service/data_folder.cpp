#include "data_folder.h"

#include <cstdlib>
#include <stdexcept>

namespace service {

std::filesystem::path DataFolder() {
    const char* const dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/') {
        return std::filesystem::path(dataHome) / "kelvarin-service";
    }
    const char* const home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        throw std::runtime_error("neither XDG_DATA_HOME nor HOME names a folder");
    }
    return std::filesystem::path(home) / ".local/share/kelvarin-service";
}

void MakePrivateFolder(const std::filesystem::path& folder) {
    if (std::filesystem::create_directories(folder)) {
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    }
}

std::filesystem::path AccountsFile(const CommandLine& line) {
    if (const auto file = line.Value("--database")) {
        return *file;
    }
    MakePrivateFolder(DataFolder());
    return DataFolder() / "accounts.db";
}

} // namespace service
