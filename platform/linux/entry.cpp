#include "platform/entry.h"

int main() { return platform::ProgramMain(); }
