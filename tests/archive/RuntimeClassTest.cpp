#include "archive/arcobj.h"
