// GNUstep's Foundation with what it lacks of Apple's.
#pragma once

#include_next <Foundation/Foundation.h>

#undef NS_UNAVAILABLE
#define NS_UNAVAILABLE __attribute__((unavailable))

typedef NSString *NSErrorDomain;
typedef NSSize CGSize;

@interface NSFileManager (ApplicationGroups)
- (NSURL *)containerURLForSecurityApplicationGroupIdentifier:(NSString *)groupIdentifier;
@end
