// The unified log, as far as this project uses it.
#pragma once

#import <Foundation/Foundation.h>

#include <stdbool.h>
#include <stdint.h>

@protocol OS_os_log <NSObject>
@end
typedef NSObject<OS_os_log> *os_log_t;

typedef uint8_t os_log_type_t;
enum : os_log_type_t {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_DEBUG = 0x02,
  OS_LOG_TYPE_ERROR = 0x10,
  OS_LOG_TYPE_FAULT = 0x11,
};

#ifdef __cplusplus
extern "C" {
#endif

os_log_t os_log_create(const char *subsystem, const char *category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);

// What the macros call. The arguments are those of the format.
void tulo_sdk_os_log(os_log_t log, os_log_type_t type, const char *format, ...);

#ifdef __cplusplus
}
#endif

// The format must be a literal, as the real macro's.
#define os_log_with_type(log, type, format, ...) \
  tulo_sdk_os_log((log), (type), "" format, ##__VA_ARGS__)
