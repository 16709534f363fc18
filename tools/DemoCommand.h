// qlm-calib demo: generates synthetic data into a temporary folder, runs
// refine and chart on it, and prints measured against true values.
#pragma once

// Returns 0 when both runs passed their checks, 3 otherwise.
int RunDemo();
