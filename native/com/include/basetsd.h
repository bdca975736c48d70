#pragma once
#include <minwindef.h>
