// Stand-in for the parts of libdispatch that tovrin's macOS backend uses,
// as they read in Objective-C with ARC (dispatch objects are Objective-C
// objects there, retained and released by ARC), for the type check only
// (see ../README.md).

#ifndef TOVRIN_SDK_DISPATCH_DISPATCH_H_
#define TOVRIN_SDK_DISPATCH_DISPATCH_H_

#include <stdint.h>
#include <sys/qos.h>

#import <objc/NSObject.h>

#pragma clang assume_nonnull begin

@protocol OS_dispatch_object <NSObject>
@end
@protocol OS_dispatch_queue <OS_dispatch_object>
@end
@protocol OS_dispatch_queue_global <OS_dispatch_queue>
@end
@protocol OS_dispatch_semaphore <OS_dispatch_object>
@end

typedef NSObject<OS_dispatch_queue> *dispatch_queue_t;
typedef NSObject<OS_dispatch_queue_global> *dispatch_queue_global_t;
typedef NSObject<OS_dispatch_semaphore> *dispatch_semaphore_t;

typedef void (^dispatch_block_t)(void);

typedef uint64_t dispatch_time_t;
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)

#ifdef __cplusplus
extern "C" {
#endif

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);

dispatch_queue_global_t dispatch_get_global_queue(intptr_t identifier,
                                                  uintptr_t flags);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

dispatch_semaphore_t dispatch_semaphore_create(intptr_t value);
intptr_t dispatch_semaphore_wait(dispatch_semaphore_t dsema,
                                 dispatch_time_t timeout);
intptr_t dispatch_semaphore_signal(dispatch_semaphore_t dsema);

#ifdef __cplusplus
}
#endif

#pragma clang assume_nonnull end

#endif  // TOVRIN_SDK_DISPATCH_DISPATCH_H_
