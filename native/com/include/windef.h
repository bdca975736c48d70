#pragma once
#include <minwindef.h>
#include <winerror.h>
