// Stand-in for the parts of Core Foundation that tovrin's macOS backend
// uses, for the type check only (see ../README.md).

#ifndef TOVRIN_SDK_COREFOUNDATION_COREFOUNDATION_H_
#define TOVRIN_SDK_COREFOUNDATION_COREFOUNDATION_H_

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

#define CF_EXPORT extern
#define CF_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define CF_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define CF_IMPLICIT_BRIDGING_ENABLED _Pragma("clang arc_cf_code_audited begin")
#define CF_IMPLICIT_BRIDGING_DISABLED _Pragma("clang arc_cf_code_audited end")
#define CF_BRIDGED_TYPE(T) __attribute__((objc_bridge(T)))

// Enumerations with a fixed underlying type, as CFAvailability.h spells
// them: in C++ an enumeration of its own for CF_ENUM, and the integer type
// itself (with anonymous constants) for CF_OPTIONS.
#if defined(__cplusplus)
#define CF_ENUM(_type, _name) \
  enum _name : _type _name;   \
  enum _name : _type
#define CF_OPTIONS(_type, _name) \
  _type _name;                   \
  enum : _type
#else
#define CF_ENUM(_type, _name) \
  enum _name : _type _name;   \
  enum _name : _type
#define CF_OPTIONS(_type, _name) \
  enum _name : _type _name;      \
  enum _name : _type
#endif

typedef unsigned char Boolean;
typedef unsigned long CFTypeID;
typedef signed long CFIndex;

typedef const void *CFTypeRef;
typedef const struct CF_BRIDGED_TYPE(NSString) __CFString *CFStringRef;
typedef const struct CF_BRIDGED_TYPE(NSDictionary) __CFDictionary
    *CFDictionaryRef;

CF_EXTERN_C_BEGIN
CF_IMPLICIT_BRIDGING_ENABLED
CF_ASSUME_NONNULL_BEGIN

CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
CF_EXPORT void CFRelease(CFTypeRef cf);
CF_EXPORT CFTypeID CFStringGetTypeID(void);

CF_ASSUME_NONNULL_END
CF_IMPLICIT_BRIDGING_DISABLED
CF_EXTERN_C_END

#endif  // TOVRIN_SDK_COREFOUNDATION_COREFOUNDATION_H_
