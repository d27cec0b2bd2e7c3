#ifndef KIV_DEVICE_H
#define KIV_DEVICE_H

#include "export.h"

KIV_BEGIN_DECLS

KIV_END_DECLS

#endif /* KIV_DEVICE_H */
