// Autoreleased objects of one scope.
//
// The compiler's own statement for this is not used, because not every runtime drains its pool when
// a C++ exception leaves the scope.
#pragma once

#import <Foundation/Foundation.h>

namespace tulo::apple {

// Releases at the end of its life what was autoreleased meanwhile on the thread. A local variable
// only: pools are stacked by thread.
class AutoreleasePool {
 public:
  AutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
  ~AutoreleasePool() { [pool_ drain]; }
  AutoreleasePool(const AutoreleasePool &) = delete;
  AutoreleasePool &operator=(const AutoreleasePool &) = delete;

 private:
  NSAutoreleasePool *pool_;
};

}  // namespace tulo::apple
