// Marks what a library offers; everything else is hidden inside it.
#pragma once

#define EXPORT __attribute__((visibility("default")))
