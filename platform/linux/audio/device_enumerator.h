// The built-in class MMDeviceEnumerator.
#pragma once

#include "audio/com_object.h"

#include <mmdeviceapi.h>

namespace audio {

// Connects to the sound server. Without one there is an enumerator all the same, which finds
// nothing.
ComOwner<IMMDeviceEnumerator> MakeDeviceEnumerator();

} // namespace audio
