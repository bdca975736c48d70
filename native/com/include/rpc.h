#pragma once
#include <rpcdce.h>
