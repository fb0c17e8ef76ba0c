// The transcript: a text file of every final caption, in a folder on the desktop. Its failures are
// silent; without a file the captions are on the screen alone. Knows nothing of runs and windows.
#pragma once

#include "owner.h"
#include "wide_text.h"

#include <windows.h>

#include <mutex>
#include <string>

// Any thread may call any operation. They write to the disk and wait for it.
class Transcript {
public:
    Transcript() = default;
    ~Transcript() { Close(); }
    Transcript(const Transcript&) = delete;
    Transcript& operator=(const Transcript&) = delete;

    // Closes the file that is open and begins a new one, whose head names these languages.
    void Open(const WideString& langA, const WideString& langB);
    // Adds a final caption. In one call to the system, without a buffer of the program's own: what
    // was written survives the program. Nothing happens when no file is open.
    void Append(const WideString& original, const WideString& translated);
    void Close();

private:
    bool Write(const std::string& entry) const;
    void Reopen();
    void CloseFile();

    std::mutex mutex_; // guards all below; held while the disk is written
    FileHandle file_;
    WideString path_;  // of the file; empty when none is open
    std::string head_; // what it begins with
};
