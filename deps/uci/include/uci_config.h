/* Build configuration of libuci.  May define UCI_DEBUG (library debug
 * output) and UCI_DEBUG_TYPECAST (checked uci_to_* casts). */
#ifndef __UCI_CONFIG_H
#define __UCI_CONFIG_H

#endif
