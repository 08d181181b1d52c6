// Which sanitizer this build has: some limits make no sense under one.

#ifndef HALVEX_TESTS_SUPPORT_SANITIZERS_H
#define HALVEX_TESTS_SUPPORT_SANITIZERS_H

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HALVEX_UNDER_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define HALVEX_UNDER_THREAD_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define HALVEX_UNDER_ADDRESS_SANITIZER
#endif
#if defined(__SANITIZE_THREAD__)
#define HALVEX_UNDER_THREAD_SANITIZER
#endif

namespace halvex_test {

#if defined(HALVEX_UNDER_ADDRESS_SANITIZER)
inline constexpr bool under_address_sanitizer = true;
#else
inline constexpr bool under_address_sanitizer = false;
#endif
#if defined(HALVEX_UNDER_THREAD_SANITIZER)
inline constexpr bool under_thread_sanitizer = true;
#else
inline constexpr bool under_thread_sanitizer = false;
#endif

}  // namespace halvex_test

#endif  // HALVEX_TESTS_SUPPORT_SANITIZERS_H
