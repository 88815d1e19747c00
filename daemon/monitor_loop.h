// The link monitor: start-up, detaching and the monitor loop.
#pragma once

#include "core/board.h"

// Runs the daemon role; returns what main returns on an early end.
int daemon_main(const BoardProfile &profile, int speed_status);
