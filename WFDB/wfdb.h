#include "ravo/wfdb.h" /* the record library alone */
