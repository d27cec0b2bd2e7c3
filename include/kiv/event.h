#ifndef KIV_EVENT_H
#define KIV_EVENT_H

#include "export.h"

KIV_BEGIN_DECLS

KIV_END_DECLS

#endif /* KIV_EVENT_H */
