// Qt's events as input of the windows. All of this is of the thread that has the windows alone.
#pragma once

#include <windef.h>

class QKeyEvent;
class QMouseEvent;
class QWheelEvent;

namespace windowing {

// `topLevel` is the window that Qt told of it, or in which that stands.
void ReportPress(HWND topLevel, const QMouseEvent& event);
void ReportSecondPress(HWND topLevel, const QMouseEvent& event); // in place of a press
void ReportRelease(HWND topLevel, const QMouseEvent& event);
void ReportMove(HWND topLevel, const QMouseEvent& event);
void ReportWheel(HWND topLevel, const QWheelEvent& event);
void ReportLeave(HWND topLevel);
void ReportKey(HWND topLevel, const QKeyEvent& event, bool down);

} // namespace windowing
