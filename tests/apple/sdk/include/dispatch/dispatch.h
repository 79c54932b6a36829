// The global queues of the dispatch library, as far as this project uses them.
#pragma once

#import <Foundation/Foundation.h>

#include <stdint.h>

@protocol OS_dispatch_queue <NSObject>
@end
typedef NSObject<OS_dispatch_queue> *dispatch_queue_t;
typedef void (^dispatch_block_t)(void);

typedef unsigned int qos_class_t;
enum : qos_class_t {
  QOS_CLASS_USER_INTERACTIVE = 0x21,
  QOS_CLASS_USER_INITIATED = 0x19,
  QOS_CLASS_DEFAULT = 0x15,
  QOS_CLASS_UTILITY = 0x11,
  QOS_CLASS_BACKGROUND = 0x09,
  QOS_CLASS_UNSPECIFIED = 0x00,
};

#ifdef __cplusplus
extern "C" {
#endif

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

// The class of the queue that the calling thread works for.
qos_class_t qos_class_self(void);

#ifdef __cplusplus
}
#endif
