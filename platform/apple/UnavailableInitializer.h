// What happens when somebody makes one of our objects without what it needs.
#pragma once

#import <Foundation/Foundation.h>

namespace tulo::apple {

// Reports that init is not implemented for the object's class, and stops the process.
[[noreturn]] void stopForUnavailableInitializer(id object);

}  // namespace tulo::apple
