// Export macro of basert1. Every function and class that other modules call carries BASERT_API;
// everything else stays hidden (the library is built with -fvisibility=hidden).
#pragma once

#if defined(BASERT_STATIC)
#define BASERT_API
#elif defined(_WIN32)
#if defined(BASERT_BUILDING)
#define BASERT_API __declspec(dllexport)
#else
#define BASERT_API __declspec(dllimport)
#endif
#else
#define BASERT_API __attribute__((visibility("default")))
#endif
