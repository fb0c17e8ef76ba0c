#include "process/runtime_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace process {
namespace {

// Another user's folder, or one that others may write to, is no place for locks and sockets.
bool IsOwnFolder(const std::string& path) {
    struct stat facts {};
    return lstat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode) &&
           facts.st_uid == geteuid() && (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string SessionFolder() {
    const char* const named = std::getenv("XDG_RUNTIME_DIR");
    std::string folder = named != nullptr ? named : "";
    if (!folder.starts_with('/')) {
        return {};
    }
    while (folder.size() > 1 && folder.ends_with('/')) {
        folder.pop_back();
    }
    return IsOwnFolder(folder) ? folder : std::string();
}

std::string TemporaryFolder() {
    std::error_code error;
    const auto base = std::filesystem::temp_directory_path(error);
    if (error) {
        return {};
    }
    std::string folder = base / ("kelvarin-" + std::to_string(geteuid()));
    mkdir(folder.c_str(), 0700);
    return IsOwnFolder(folder) ? folder : std::string();
}

} // namespace

std::string RuntimeFolder() {
    std::string folder = SessionFolder();
    return folder.empty() ? TemporaryFolder() : folder;
}

} // namespace process
