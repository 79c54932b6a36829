// GNUstep's headers ask the Objective-C runtime for blocks; GCC's runtime has none of its own.
#pragma once

#include <Block.h>
