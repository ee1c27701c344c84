// The option command: interpreter switches, error trap, signals, alarm.
#pragma once

int X_option(char *buff, int *compile, int ignore);
