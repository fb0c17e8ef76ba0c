// Real-time scheduling for threads that handle sound as it comes.
#pragma once

namespace process {

// Gives the calling thread the lowest real-time priority: ahead of every ordinary thread, behind
// the sound server's own. False, and nothing changed, where the system does not grant that.
bool RaiseThreadForAudio();

} // namespace process
