// The built-in class MMDeviceEnumerator.
#pragma once

#include "audio/com_object.h"

#include <mmdeviceapi.h>

namespace audio {

// On the process's connection to the sound server. Without a server there is an enumerator all the
// same, which finds nothing.
ComOwner<IMMDeviceEnumerator> MakeDeviceEnumerator();

} // namespace audio
