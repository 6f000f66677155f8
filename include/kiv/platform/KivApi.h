// Export control of the framework library.
//
// The library is built with every symbol hidden; the classes and functions of
// the public interface are marked KIV_API and are exported whole.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define KIV_API __attribute__((visibility("default")))
#else
#define KIV_API
#endif
