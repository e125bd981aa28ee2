// What the shared libraries show; everything else stays inside them.
#pragma once

#define OSTRAND_API __attribute__((visibility("default")))
