// Where the program keeps what it is not told another place for.
#pragma once

#include "command_line.h"

#include <filesystem>

namespace service {

// $XDG_DATA_HOME/kelvarin-service, or the one below HOME. Throws when neither names a folder.
std::filesystem::path DataFolder();

// With its parents, for its owner alone where it is made.
void MakePrivateFolder(const std::filesystem::path& folder);

// That of --database; by default in the data folder, which is made.
std::filesystem::path AccountsFile(const CommandLine& line);

} // namespace service
