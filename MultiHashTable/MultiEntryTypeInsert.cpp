#include "MultiHashTable.h"
