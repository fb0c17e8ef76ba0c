// The one Qt application of the process. Knows nothing of windows and drawing; the rooms that stand
// on Qt ask for it here before they touch anything of Qt that needs it.
#pragma once

class QApplication;

namespace application {

// Makes the application at the first call, which is to come from the thread that will have the
// windows, and keeps it until the process ends. Null where there is no screen to be had: told once
// on stderr, and then nothing that needs Qt's application may be called.
QApplication* Instance();

} // namespace application
