#pragma once
#include <guiddef.h>
