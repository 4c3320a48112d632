// Symbol visibility for the shared libraries: every library is built with hidden visibility, and
// only declarations marked VEK_API are exported.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define VEK_API __attribute__((visibility("default")))
#else
#define VEK_API
#endif
