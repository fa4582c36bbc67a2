// Stand-in for the parts of Foundation that tovrin's macOS backend uses,
// for the type check only (see ../README.md). Besides the classes the
// backend calls, it declares what the compiler needs for Objective-C
// literals (@"", @YES, @[], @{}) and for fast enumeration (for ... in).

#ifndef TOVRIN_SDK_FOUNDATION_FOUNDATION_H_
#define TOVRIN_SDK_FOUNDATION_FOUNDATION_H_

#include <CoreFoundation/CoreFoundation.h>
#include <stdint.h>

#import <objc/NSObject.h>

#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_FORMAT_FUNCTION(F, A) __attribute__((format(__NSString__, F, A)))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#define NS_ENUM(_type, _name) CF_ENUM(_type, _name)
#define NS_OPTIONS(_type, _name) CF_OPTIONS(_type, _name)

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef unsigned short unichar;
typedef NSUInteger NSStringEncoding;

typedef struct _NSRange {
  NSUInteger location;
  NSUInteger length;
} NSRange;

static inline NSRange NSMakeRange(NSUInteger loc, NSUInteger len) {
  NSRange r;
  r.location = loc;
  r.length = len;
  return r;
}

NS_ASSUME_NONNULL_BEGIN

@class NSString;

typedef struct _NSZone NSZone;

@protocol NSCopying
- (id)copyWithZone:(nullable NSZone *)zone;
@end

typedef struct {
  unsigned long state;
  id __unsafe_unretained _Nullable *_Nullable itemsPtr;
  unsigned long *_Nullable mutationsPtr;
  unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(id __unsafe_unretained _Nullable
                                               [_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

enum : NSUInteger {
  NSUTF8StringEncoding = 4,
};

@interface NSData : NSObject <NSCopying>
+ (instancetype)dataWithBytes:(nullable const void *)bytes
                       length:(NSUInteger)length;
@property(readonly) NSUInteger length;
@property(readonly) const void *bytes NS_RETURNS_INNER_POINTER;
@end

@interface NSString : NSObject <NSCopying>
@property(readonly) NSUInteger length;
- (void)getCharacters:(unichar *)buffer range:(NSRange)range;
- (instancetype)initWithCharacters:(const unichar *)characters
                            length:(NSUInteger)length;
- (nullable instancetype)initWithData:(NSData *)data
                             encoding:(NSStringEncoding)encoding;
@end

@interface NSValue : NSObject <NSCopying>
@end

@interface NSNumber : NSValue
+ (NSNumber *)numberWithBool:(BOOL)value;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying,
                                                       NSFastEnumeration>
@property(readonly) NSUInteger count;
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects
                           count:(NSUInteger)cnt;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType>
    : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)
    dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                  forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                    count:(NSUInteger)cnt;
@end

@interface NSError : NSObject <NSCopying>
@end

@interface NSURL : NSObject <NSCopying>
+ (nullable instancetype)URLWithString:(NSString *)URLString;
@property(readonly, getter=isFileURL) BOOL fileURL;
@property(nullable, readonly, copy) NSString *path;
@end

@interface NSAttributedString : NSObject <NSCopying>
@property(readonly) NSUInteger length;
@end

FOUNDATION_EXPORT void NSLog(NSString *format, ...) NS_FORMAT_FUNCTION(1, 2)
    __attribute__((not_tail_called));

NS_ASSUME_NONNULL_END

#endif  // TOVRIN_SDK_FOUNDATION_FOUNDATION_H_
