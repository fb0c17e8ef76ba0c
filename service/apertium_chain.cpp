#include "apertium_chain.h"

#include "log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace service {
namespace {

using namespace std::chrono_literals;

// For one text, a restart of the chain included. Clients give up on an answer after 8 s.
constexpr auto kAnswerTimeout = 3s;

// Splits a mode's shell pipeline into its stages' words. Modes use nothing of the shell but
// quotes, `|`, and two parameters: $1 is the generator's option (here -n: unknown words without a
// mark), $2 the tagger's (here none).
std::vector<std::vector<std::string>> SplitPipeline(std::string_view text) {
    std::vector<std::vector<std::string>> stages(1);
    std::optional<std::string> word;
    const auto endWord = [&] {
        if (word == "$1") {
            word = "-n";
        }
        if (word && word != "$2") {
            stages.back().push_back(std::move(*word));
        }
        word.reset();
    };
    char quote = 0;
    for (const char character : text) {
        if (quote != 0 && character == quote) {
            quote = 0;
        } else if (quote != 0) {
            *word += character;
        } else if (character == '\'' || character == '"') {
            quote = character;
            word = word.value_or("");
        } else if (character == '|') {
            endWord();
            stages.emplace_back();
        } else if (character == ' ' || character == '\t' || character == '\n') {
            endWord();
        } else {
            word = word.value_or("") + character;
        }
    }
    endWord();
    return stages;
}

std::vector<std::vector<std::string>> ReadMode(const std::string& mode) {
    const auto path = std::filesystem::path(KELVARIN_APERTIUM_MODES) / (mode + ".mode");
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty()) {
        throw std::runtime_error("the Apertium mode " + mode + " is not installed");
    }

    std::vector<std::vector<std::string>> commands;
    for (std::vector<std::string>& command : SplitPipeline(text)) {
        if (command.empty()) {
            throw std::runtime_error("the Apertium mode " + mode + " cannot be read");
        }
        // Older modes let the transfer look words up by itself, which newer releases get wrong.
        if (command.size() == 4 && command[0] == "apertium-transfer" &&
            !command[1].starts_with('-')) {
            commands.push_back({"lt-proc", "-z", "-b", command[3]});
            command = {command[0], "-b", command[1], command[2]};
        }
        command.insert(command.begin() + 1, "-z");
        commands.push_back(std::move(command));
    }
    return commands;
}

constexpr std::string_view kStreamMarks = "^$/[]{}\\@<>"; // mean something to the stages

// The text in the stages' stream format. It must end in a blank: the first stage holds back what
// could still be the beginning of a longer word.
std::string ToStream(std::string_view text) {
    std::string stream;
    for (const char character : text) {
        if (kStreamMarks.find(character) != kStreamMarks.npos) {
            stream += '\\';
        }
        stream += character == '\0' ? ' ' : character;
    }
    return stream + "\n";
}

std::string FromStream(std::string_view stream) {
    std::string text;
    for (std::size_t i = 0; i < stream.size(); ++i) {
        if (stream[i] == '\\' && i + 1 < stream.size()) {
            ++i;
        }
        text += stream[i];
    }
    const std::size_t first = text.find_first_not_of(" \n");
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \n") - first + 1);
}

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Pipe MakeSocketPair() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make a socket pair");
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

bool SendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

} // namespace

ApertiumChain::ApertiumChain(std::string mode)
    : mode_(std::move(mode)), commands_(ReadMode(mode_)) {
    Start();
}

std::string ApertiumChain::Translate(std::string_view text) {
    const std::string request = ToStream(text);
    if (request.find_first_not_of(" \n") == request.npos) {
        return {};
    }

    const Deadline deadline = std::chrono::steady_clock::now() + kAnswerTimeout;
    std::string answer = Ask(request, deadline);
    if (!answer.empty()) {
        return answer;
    }
    // No answer to a text that has words: a stage is dead or stuck. What it might still say would
    // be taken for the next text's translation, so the whole chain goes.
    if (!Restart() || std::chrono::steady_clock::now() >= deadline) {
        return {};
    }
    answer = Ask(request, deadline);
    if (answer.empty()) {
        Restart();
    }
    return answer;
}

bool ApertiumChain::Restart() {
    Log("translation chain " + mode_ + " gave no answer, starting it anew");
    try {
        Start();
        return true;
    } catch (const std::exception& failure) {
        Log(failure.what());
        return false;
    }
}

void ApertiumChain::Start() {
    Stop();
    Pipe feed = MakeSocketPair();
    FileDescriptor stageInput = std::move(feed.readEnd);
    for (const std::vector<std::string>& command : commands_) {
        Pipe pipe = MakePipe();
        stages_.emplace_back(command, stageInput.Get(), pipe.writeEnd.Get());
        stageInput = std::move(pipe.readEnd);
    }
    input_ = std::move(feed.writeEnd);
    output_ = std::move(stageInput);
}

void ApertiumChain::Stop() {
    input_ = FileDescriptor();
    output_ = FileDescriptor();
    stages_.clear();
}

std::string ApertiumChain::Ask(const std::string& request, Deadline deadline) {
    // One byte more than the text: the null that flushes the stages.
    if (!SendAll(input_.Get(), {request.c_str(), request.size() + 1})) {
        return {};
    }

    std::string answer;
    while (answer.find('\0') == answer.npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return {};
        }
        pollfd readable{output_.Get(), POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
            continue;
        }
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(output_.Get(), buffer.data(), buffer.size());
        if (count <= 0) {
            return {};
        }
        answer.append(buffer.data(), static_cast<std::size_t>(count));
    }
    // The end of a dead stage's stream makes those behind it flush what they have: nothing, or half
    // a sentence, and a null for each flush.
    const bool broken = answer.find('\0') + 1 != answer.size() ||
                        std::ranges::any_of(stages_, &ChildProcess::HasEnded);
    if (broken) {
        return {};
    }
    answer.pop_back();
    return FromStream(answer);
}

} // namespace service
