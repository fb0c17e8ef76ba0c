// Linked into every test program; asked for by LeakSanitizer where it is built in.

extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n"; // keeps the fonts' configuration for the life of the process
}
