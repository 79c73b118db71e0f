// Linked into every program of the sanitizer build: what is intended.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:CStr::Format\n"  // the scratch buffer
           "leak:CIntegerArray::Add\n"
           "leak:CStrArray::Add\n";
}

extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "detect_odr_violation=0";  // the simulated server takes the place of libzalftbl.so's cruFd
}

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options()
{
    return "print_suppressions=0";
}
