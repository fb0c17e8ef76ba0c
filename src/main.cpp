// The process: what is set up before the overlay exists, and that there is only one of it.
#include "overlay_window.h"
#include "owner.h"
#include "window_class.h"

#include <windows.h>
#include <objbase.h>
#include <commctrl.h>
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <memory>

namespace {

constexpr const WCHAR* kInstanceName = TEXT("KelvarinWin32_SingleInstance");

// Before the trace has anything to say: to stderr only, without the time.
void EarlyLine(const WCHAR* text) {
    fputws(text, stderr);
    std::fflush(stderr);
}

// Traces lead to the console that the program was started from, if it was.
void AttachToConsole() {
    if (AttachConsole(ATTACH_PARENT_PROCESS) == FALSE) {
        return;
    }
    for (std::FILE* stream : {stdout, stderr}) {
        std::FILE* reopened = nullptr;
        freopen_s(&reopened, "CONOUT$", "w", stream);
    }
    for (std::FILE* stream : {stdout, stderr}) {
        std::setvbuf(stream, nullptr, _IONBF, 0);
    }
    for (std::FILE* stream : {stdout, stderr}) {
        _setmode(_fileno(stream), _O_U8TEXT);
    }
    EarlyLine(TEXT("\n[DEBUG] Console attached — debug output enabled\n"));
}

void SetUpProcess() {
    AttachToConsole();
    SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
    const INITCOMMONCONTROLSEX controls{sizeof controls, ICC_WIN95_CLASSES | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&controls);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    EarlyLine(TEXT("[DEBUG] wWinMain started\n"));
}

void BringOtherInstanceToFront() {
    // scripts/ look for this line.
    EarlyLine(TEXT("[DEBUG] Already running — bringing existing window to front\n"));
    if (HWND overlay = FindWindowW(kOverlayClass, nullptr); overlay != nullptr) {
        ShowWindow(overlay, SW_SHOW);
        SetForegroundWindow(overlay);
    }
}

void RunOverlay() {
    EarlyLine(TEXT("[DEBUG] Creating OverlayWindow\n"));
    OverlayWindow overlay;
    EarlyLine(TEXT("[DEBUG] Entering message loop\n"));
    overlay.Run();
    EarlyLine(TEXT("[DEBUG] Message loop exited\n"));
}

} // namespace

int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*former*/, PWSTR /*commandLine*/,
                    int /*show*/) {
    SetUpProcess();
    OwnedMutex instance(CreateMutexW(nullptr, TRUE, kInstanceName));
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        BringOtherInstanceToFront();
        instance.Reset();
        CoUninitialize();
        return 0;
    }
    RunOverlay();
    instance.Reset();
    CoUninitialize();
    EarlyLine(TEXT("[DEBUG] Exiting\n"));
    return 0;
}
