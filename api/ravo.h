#include "ravo/ravo.h" /* the whole library */
