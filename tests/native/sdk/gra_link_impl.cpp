// The library's one implementation file in the test program, compiled as
// C++ (gra-send compiles it as C99).
#define GRA_LINK_IMPLEMENTATION
#include "gra_link.h"
