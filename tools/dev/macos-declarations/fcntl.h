// SPDX-License-Identifier: Apache-2.0
#pragma once
#include_next <fcntl.h>
#define F_FULLFSYNC 51
