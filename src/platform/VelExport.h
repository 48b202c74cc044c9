// What a shared library of this system shows to others; everything else is built hidden.
#pragma once

#define VEL_EXPORT __attribute__((visibility("default")))
