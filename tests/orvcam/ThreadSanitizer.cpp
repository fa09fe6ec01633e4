#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
/// The GenApi library takes one of GLib's locks in a way that goes past the sanitizer and gives it back in a way that
/// does not, so the first unlock looks like one too many.
extern "C" const char *__tsan_default_suppressions();
extern "C" const char *__tsan_default_suppressions()
{
    return "mutex:libaravis-0.8.so\n";
}
#endif
#endif
