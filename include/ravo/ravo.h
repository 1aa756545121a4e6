/* What a host includes: the device functions, and with them the record library's. */
#include "api/ravo.h"
