// How the sanitizers treat a process that embeds Python, whose libraries are not built with them.

extern "C" {
/// The interpreter is never finalised, so all that it holds would count as leaks.
__attribute__((visibility("default"), used)) int __lsan_is_turned_off() {
    return 1;
}

/// What Python's packages do among themselves is synchronised by means that ThreadSanitizer cannot see.
__attribute__((visibility("default"), used)) const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1";
}
}
