#ifndef KIV_WIFI_H
#define KIV_WIFI_H

#include "export.h"

KIV_BEGIN_DECLS

KIV_END_DECLS

#endif /* KIV_WIFI_H */
