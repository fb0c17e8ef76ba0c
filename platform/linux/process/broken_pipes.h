// Writing to what nobody reads any more.
#pragma once

namespace process {

// From now on such a write fails instead of ending the process. A handler of the signal that is
// there already stays.
void IgnoreBrokenPipes();

} // namespace process
