// Shared-mode clients of one endpoint.
#pragma once

#include "audio/com_object.h"
#include "audio/endpoint.h"
#include "audio/server_connection.h"

#include <audioclient.h>

#include <memory>

namespace audio {

ComOwner<IAudioClient> MakeAudioClient(std::shared_ptr<ServerConnection> connection,
                                       Endpoint endpoint);

} // namespace audio
