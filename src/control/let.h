// The assignment line: <@name>++, <@name>+= value and the other operators.
#pragma once

int X_let(char *buff, int compile, int ignore);
