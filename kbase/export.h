// Export macro of kbase1: every exported class and function carries KBASE_API.
#pragma once

#if defined(KBASE_STATIC)
#define KBASE_API
#elif defined(_WIN32)
#if defined(KBASE_BUILDING)
#define KBASE_API __declspec(dllexport)
#else
#define KBASE_API __declspec(dllimport)
#endif
#else
#define KBASE_API __attribute__((visibility("default")))
#endif
