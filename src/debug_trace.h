// The debug trace: each line goes to the debugger's channel and to stderr, which is flushed. Any
// thread may trace at any time; there is no lock. Every text brings its own writer's tag and its
// own "\n". A text that does not fit its room is cut, but keeps that "\n".
#pragma once

#include <windows.h>

// With the local time before it. Room for 1024 characters.
void DebugTrace(const WCHAR* format, ...);

// "[AUDIO]" lines with arguments. No time; room for 512 characters.
void AudioTrace(const WCHAR* format, ...);

// "[PROXY]" lines with arguments that need no time. Room for 1024 characters.
void ProxyTrace(const WCHAR* format, ...);

// A fixed text, unchanged.
void TraceText(const WCHAR* text);
