// Stand-in for <objc/NSObject.h>: the root class and its protocol, for the
// type check only (see ../README.md).

#ifndef TOVRIN_SDK_OBJC_NSOBJECT_H_
#define TOVRIN_SDK_OBJC_NSOBJECT_H_

#include <objc/objc.h>

#pragma clang assume_nonnull begin

@protocol NSObject
- (BOOL)isKindOfClass:(Class)aClass;
@end

__attribute__((objc_root_class))
@interface NSObject <NSObject>
+ (instancetype)alloc;
+ (instancetype)new;
+ (Class)class;
- (instancetype)init;
- (BOOL)isKindOfClass:(Class)aClass;
@end

#pragma clang assume_nonnull end

#endif  // TOVRIN_SDK_OBJC_NSOBJECT_H_
