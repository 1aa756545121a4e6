// The sanitizer that the tests are built with: gcc defines a macro, clang has a feature test.
#pragma once

#if defined(__has_feature)
#define RAVO_HAS_FEATURE(x) __has_feature(x)
#else
#define RAVO_HAS_FEATURE(x) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || RAVO_HAS_FEATURE(address_sanitizer)
constexpr bool kUnderAddressSanitizer = true;
#else
constexpr bool kUnderAddressSanitizer = false;
#endif

#if defined(__SANITIZE_THREAD__) || RAVO_HAS_FEATURE(thread_sanitizer)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

constexpr bool kUnderSanitizer = kUnderAddressSanitizer || kUnderThreadSanitizer;

#undef RAVO_HAS_FEATURE
