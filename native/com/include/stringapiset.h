#pragma once
#include <winnls.h>
