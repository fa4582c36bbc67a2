// Stand-in for <sys/qos.h> of macOS, for the type check only (see
// ../README.md).

#ifndef TOVRIN_SDK_SYS_QOS_H_
#define TOVRIN_SDK_SYS_QOS_H_

enum : unsigned int {
  QOS_CLASS_USER_INTERACTIVE = 0x21,
  QOS_CLASS_USER_INITIATED = 0x19,
  QOS_CLASS_DEFAULT = 0x15,
  QOS_CLASS_UTILITY = 0x11,
  QOS_CLASS_BACKGROUND = 0x09,
  QOS_CLASS_UNSPECIFIED = 0x00,
};
typedef unsigned int qos_class_t;

#endif  // TOVRIN_SDK_SYS_QOS_H_
