// Reading and writing the values that outlive the program, under one registry key. Knows no value's
// name or meaning. With a null key every read gives the fallback and every write is skipped.
#pragma once

#include "wide_text.h"

#include <windows.h>

// A 32-bit number; the stored type is not looked at.
DWORD ReadStoredNumber(HKEY key, const WCHAR* name, DWORD fallback);
void WriteStoredNumber(HKEY key, const WCHAR* name, DWORD value);

// A text of at most 2047 characters; a longer one counts as absent. Empty when there is none.
WideString ReadStoredText(HKEY key, const WCHAR* name);
void WriteStoredText(HKEY key, const WCHAR* name, const WideString& text);
