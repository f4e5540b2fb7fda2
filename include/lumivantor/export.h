/* Symbol visibility for the lumivantor library. */
#ifndef LUMIVANTOR_EXPORT_H
#define LUMIVANTOR_EXPORT_H

#if defined(_WIN32)
#if defined(LUMIVANTOR_BUILDING)
#define LV_API __declspec(dllexport)
#else
#define LV_API
#endif
#else
#define LV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define LV_EXTERN_C_BEGIN extern "C" {
#define LV_EXTERN_C_END }
#else
#define LV_EXTERN_C_BEGIN
#define LV_EXTERN_C_END
#endif

#endif
