// The File Provider framework, as far as this project and its tests use it.
#pragma once

#import <FileProvider/NSFileProviderDefines.h>
#import <FileProvider/NSFileProviderDomain.h>
#import <FileProvider/NSFileProviderEnumerating.h>
#import <FileProvider/NSFileProviderItem.h>
#import <FileProvider/NSFileProviderReplicatedExtension.h>
