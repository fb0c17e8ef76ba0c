// One Apertium mode kept running: the stages of its pipeline as child processes in null-flush
// mode, so that a sentence costs milliseconds and not a start of eleven programs. Knows nothing of
// languages beyond the mode's name.
#pragma once

#include "child_process.h"
#include "file_descriptor.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// Used by one thread at a time.
class ApertiumChain {
public:
    // Starts the stages and returns without waiting until they have loaded their data. Throws when
    // the mode is not installed or a stage cannot be started.
    explicit ApertiumChain(std::string mode);

    // The translation, or an empty text when the chain gave none in time. A chain that has broken
    // is started anew and asked once more.
    std::string Translate(std::string_view text);

    const std::vector<ChildProcess>& Stages() const { return stages_; }

private:
    using Deadline = std::chrono::steady_clock::time_point;

    void Start();
    void Stop();
    bool Restart();
    std::string Ask(const std::string& request, Deadline deadline);

    std::string mode_;
    std::vector<std::vector<std::string>> commands_; // one for each stage, with its arguments
    std::vector<ChildProcess> stages_;               // empty while the chain is down
    FileDescriptor input_;                           // a socket: writing to a dead stage must not
                                                     // raise SIGPIPE
    FileDescriptor output_;
};

} // namespace service
