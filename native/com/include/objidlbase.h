#pragma once
#include <objidl.h>
