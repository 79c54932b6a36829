// libfuse, in the version of its interface that the mount is written for. Private to the mount.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse3/fuse_lowlevel.h>
