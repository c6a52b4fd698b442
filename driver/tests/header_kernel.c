// The header as a kernel driver uses it: freestanding, without any header of the C library, with its own types.
typedef unsigned char uint8_t;
typedef unsigned short uint16_t;
typedef unsigned int uint32_t;
typedef unsigned long long uint64_t;
typedef __SIZE_TYPE__ size_t;
#define NULL ((void*)0)
#define offsetof(type, field) __builtin_offsetof(type, field)

#define FENLUX_DRIVER_PROTOCOL_NO_STDINT
#include "fenlux/driver_protocol.h"

typedef struct Scratch {
  FenluxConnectContextView connectContext;
  FenluxRequestView request;
  FenluxNotificationView notification;
  FenluxReplyView reply;
  size_t size;
} Scratch;

// Uses every parser and builder, so that the object file shows which symbols they need.
FenluxError FenluxHeaderKernelUses(const FenluxNotification* notification, FenluxBytes context, void* buffer,
                                   size_t capacity, Scratch* scratch);

FenluxError FenluxHeaderKernelUses(const FenluxNotification* notification, FenluxBytes context, void* buffer,
                                   size_t capacity, Scratch* scratch) {
  FenluxError error = FenluxParseConnectContext(buffer, capacity, &scratch->connectContext);
  if (error == FENLUX_OK) error = FenluxParseRequest(buffer, capacity, &scratch->request);
  if (error == FENLUX_OK) error = FenluxParseNotification(buffer, capacity, &scratch->notification);
  if (error == FENLUX_OK) error = FenluxParseReply(buffer, capacity, &scratch->reply);
  if (error == FENLUX_OK) error = FenluxBuildVersionReply(FENLUX_MODULE_VERSION, buffer, capacity);
  if (error == FENLUX_OK) error = FenluxBuildNotification(notification, buffer, capacity, &scratch->size);
  if (error == FENLUX_OK) error = FenluxBuildReply(FENLUX_VERDICT_CONTEXT, context, buffer, capacity, &scratch->size);
  return FenluxErrorText(error)[0] != 0 ? error : FENLUX_ERROR_NULL;
}
