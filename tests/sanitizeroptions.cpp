// Memory that cannot be had gives null, as it does without a sanitizer: a document asks for it.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers look for these names
extern "C" {
const char* __asan_default_options();
const char* __tsan_default_options();
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
}
// NOLINTEND(bugprone-reserved-identifier)
