// Does in Windows what a try-out under Wine cannot do from outside:
//   trust FILE.pem   makes the current user trust a certificate authority
//   tray             presses the overlay's icon in the notification area with the right button
#include "tray_icon.h"

#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

bool Trust(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string pem{std::istreambuf_iterator<char>(file), {}};
    DWORD size = 0;
    CryptStringToBinaryA(pem.data(), static_cast<DWORD>(pem.size()), CRYPT_STRING_BASE64HEADER,
                         nullptr, &size, nullptr, nullptr);
    std::vector<BYTE> certificate(size);
    HCERTSTORE roots = CertOpenSystemStoreW(0, TEXT("ROOT"));
    const bool added =
        size > 0 && roots != nullptr &&
        CryptStringToBinaryA(pem.data(), static_cast<DWORD>(pem.size()), CRYPT_STRING_BASE64HEADER,
                             certificate.data(), &size, nullptr, nullptr) != FALSE &&
        CertAddEncodedCertificateToStore(roots, X509_ASN_ENCODING, certificate.data(), size,
                                         CERT_STORE_ADD_REPLACE_EXISTING, nullptr) != FALSE;
    if (roots != nullptr) {
        CertCloseStore(roots, 0);
    }
    return added;
}

bool PressTrayIcon() {
    HWND overlay = FindWindowW(TEXT("KelvarinOverlay"), nullptr);
    return overlay != nullptr && PostMessageW(overlay, kMsgTray, 1, WM_RBUTTONUP) != FALSE;
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::string task = argumentCount > 1 ? arguments[1] : "";
    bool done = false;
    if (task == "trust" && argumentCount == 3) {
        done = Trust(arguments[2]);
    } else if (task == "tray") {
        done = PressTrayIcon();
    }
    if (!done) {
        std::fprintf(stderr, "could not be done, error %lu\n", GetLastError());
    }
    return done ? 0 : 1;
}
