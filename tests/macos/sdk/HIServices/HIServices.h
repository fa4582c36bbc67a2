// Stand-in for the accessibility interface of HIServices (AXError.h,
// AXUIElement.h) that tovrin's macOS backend uses, for the type check only
// (see ../README.md).

#ifndef TOVRIN_SDK_HISERVICES_HISERVICES_H_
#define TOVRIN_SDK_HISERVICES_HISERVICES_H_

#include <CoreFoundation/CoreFoundation.h>

typedef CF_ENUM(int32_t, AXError){
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214,
};

typedef const struct CF_BRIDGED_TYPE(id) __AXUIElement *AXUIElementRef;

CF_EXTERN_C_BEGIN
CF_IMPLICIT_BRIDGING_ENABLED
CF_ASSUME_NONNULL_BEGIN

extern Boolean AXIsProcessTrusted(void);
extern Boolean AXIsProcessTrustedWithOptions(
    CFDictionaryRef _Nullable options);
extern CFStringRef kAXTrustedCheckOptionPrompt;

extern AXUIElementRef AXUIElementCreateSystemWide(void);
extern AXError AXUIElementCopyAttributeValue(
    AXUIElementRef element, CFStringRef attribute,
    CFTypeRef _Nullable *_Nonnull value);

CF_ASSUME_NONNULL_END
CF_IMPLICIT_BRIDGING_DISABLED
CF_EXTERN_C_END

#endif  // TOVRIN_SDK_HISERVICES_HISERVICES_H_
