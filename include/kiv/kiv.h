/*
 * libkiv: the support library of the router firmware.  This umbrella header
 * declares the whole exported interface; each subsystem has its own header.
 */
#ifndef KIV_KIV_H
#define KIV_KIV_H

#include "runtime.h"
#include "event.h"
#include "profile.h"
#include "ucicfg.h"
#include "wifi.h"
#include "device.h"

#endif /* KIV_KIV_H */
