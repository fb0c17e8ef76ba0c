// The languages on offer, the codes that the service wants for them, and the record in which a
// whole choice travels from the settings to a run. Plain data; knows no window and no device.
#pragma once

#include "audio_devices.h"
#include "wide_text.h"

#include <vector>

// One row of a language table.
struct LanguageEntry {
    WideString name; // the language in its own script
    WideString code; // sent to the service or compared
};

// The speech locales, in the order of the lists on the screen. Row numbers are stored in the
// settings, so rows keep their places for ever.
extern const std::vector<LanguageEntry> kLanguageSources;

// The translation targets. Their names are shown nowhere.
extern const std::vector<LanguageEntry> kLanguageTargets;

// The row of a speech locale that is in the table.
int RowOfLanguage(const WideString& code);

// The translation target of a speech locale, such as "pt" of "pt-BR". A locale outside the tables
// gives the part before its first "-".
WideString ResolveTargetCode(const WideString& code);

// One complete choice for a run. All values; an empty text means that no choice was made.
struct ConfigData {
    WideString access_key;           // the user's key at the service
    WideString lang_a;               // speech locale of Language A
    WideString lang_a_tgt;           // translation target of Language A
    WideString lang_b;               // speech locale of Language B
    WideString lang_b_tgt;           // translation target of Language B
    AudioDeviceInfo mic_device;      // empty id: the default capture endpoint
    AudioDeviceInfo loopback_device; // empty id: the default render endpoint
};
