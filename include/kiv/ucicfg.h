#ifndef KIV_UCICFG_H
#define KIV_UCICFG_H

#include "export.h"

KIV_BEGIN_DECLS

KIV_END_DECLS

#endif /* KIV_UCICFG_H */
