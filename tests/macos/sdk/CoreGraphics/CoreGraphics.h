// Stand-in for the keyboard events of CoreGraphics (CGEvent.h,
// CGEventSource.h, CGEventTypes.h, CGRemoteOperation.h) that tovrin's macOS
// backend uses, for the type check only (see ../README.md).

#ifndef TOVRIN_SDK_COREGRAPHICS_COREGRAPHICS_H_
#define TOVRIN_SDK_COREGRAPHICS_COREGRAPHICS_H_

#include <CoreFoundation/CoreFoundation.h>

#define CG_EXTERN extern

typedef struct CF_BRIDGED_TYPE(id) __CGEvent *CGEventRef;
typedef struct CF_BRIDGED_TYPE(id) __CGEventSource *CGEventSourceRef;

typedef uint16_t CGKeyCode;

typedef CF_OPTIONS(uint64_t, CGEventFlags){
    kCGEventFlagMaskCommand = 0x00100000,
};

typedef CF_ENUM(uint32_t, CGEventTapLocation){
    kCGHIDEventTap = 0,
    kCGSessionEventTap,
    kCGAnnotatedSessionEventTap,
};

typedef CF_ENUM(int32_t, CGEventSourceStateID){
    kCGEventSourceStatePrivate = -1,
    kCGEventSourceStateCombinedSessionState = 0,
    kCGEventSourceStateHIDSystemState = 1,
};

CF_EXTERN_C_BEGIN
CF_IMPLICIT_BRIDGING_ENABLED
CF_ASSUME_NONNULL_BEGIN

CG_EXTERN CGEventSourceRef _Nullable CGEventSourceCreate(
    CGEventSourceStateID stateID);
CG_EXTERN CGEventRef _Nullable CGEventCreateKeyboardEvent(
    CGEventSourceRef _Nullable source, CGKeyCode virtualKey, bool keyDown);
CG_EXTERN void CGEventSetFlags(CGEventRef _Nullable event,
                               CGEventFlags flags);
CG_EXTERN void CGEventPost(CGEventTapLocation tap, CGEventRef _Nullable event);

CF_ASSUME_NONNULL_END
CF_IMPLICIT_BRIDGING_DISABLED
CF_EXTERN_C_END

#endif  // TOVRIN_SDK_COREGRAPHICS_COREGRAPHICS_H_
