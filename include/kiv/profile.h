#ifndef KIV_PROFILE_H
#define KIV_PROFILE_H

#include "export.h"

KIV_BEGIN_DECLS

KIV_END_DECLS

#endif /* KIV_PROFILE_H */
