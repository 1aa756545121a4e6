/* What a host includes that reads and writes WFDB records without a simulator. */
#include "WFDB/wfdb.h"
