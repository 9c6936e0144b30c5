// Ahead of what the interface compiler makes: its code wants to clean up by the structured exceptions of another
// compiler. Here it goes on without; what it raises reaches the RPC runtime all the same.
#pragma once

#define USE_COMPILER_EXCEPTIONS
#define __try
#define __finally
// clang-format off
#define __except(filter) if (0)
// clang-format on
