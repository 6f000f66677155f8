// Thread-sanitizer options of the programs that start GStreamer. GLib,
// GStreamer and the codecs under it are not instrumented: their locks and
// atomics are invisible, so what they do through intercepted calls
// (memcpy, malloc, mutexes) looks unordered. Those calls are not checked;
// the project's own code still is. Other sanitizers ignore this hook.
extern "C" const char* __tsan_default_options();

extern "C" const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1";
}
