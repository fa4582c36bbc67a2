// Stand-in for <objc/objc.h> of the Objective-C runtime, for the type check
// only (see ../README.md). `id`, `Class`, `SEL` and `instancetype` are the
// compiler's own.

#ifndef TOVRIN_SDK_OBJC_OBJC_H_
#define TOVRIN_SDK_OBJC_OBJC_H_

// BOOL is a signed char on Intel Macs and a bool on Apple silicon.
#if defined(__x86_64__) || defined(__i386__)
typedef signed char BOOL;
#else
typedef bool BOOL;
#endif

#define YES __objc_yes
#define NO __objc_no

#ifndef nil
#if defined(__cplusplus)
#define nil nullptr
#else
#define nil ((void *)0)
#endif
#endif

#endif  // TOVRIN_SDK_OBJC_OBJC_H_
