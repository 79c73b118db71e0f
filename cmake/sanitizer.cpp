// Linked into every program of the sanitizer build: leaks that are intended.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:CStr::Format\n";  // the scratch buffer
}
