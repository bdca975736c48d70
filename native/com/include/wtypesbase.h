#pragma once
#include <wtypes.h>
