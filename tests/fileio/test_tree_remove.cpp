#include "trees.h"
