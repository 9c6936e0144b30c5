#include "platform/windows/guardedCall.h"

#include <windows.h>

#include <rpc.h>
#include <rpcasync.h>

namespace platform {

namespace {
thread_local unsigned raised = 0;
}

// The parts of the code below: whether the exception is one of the runtime's; and what it was, behind its landing.
extern "C" long GuardFilter(::EXCEPTION_POINTERS* exception, void* frame);
extern "C" unsigned GuardResult();

extern "C" [[gnu::used]] long GuardFilter(::EXCEPTION_POINTERS* exception, void*) {
  raised = exception->ExceptionRecord->ExceptionCode;
  return ::I_RpcExceptionFilter(raised);
}

extern "C" [[gnu::used]] unsigned GuardResult() { return raised; }

// The system's own handler lands behind the guarded call.
asm(R"(
	.text
	.globl GuardedCall
	.seh_proc GuardedCall
GuardedCall:
	subq $40, %rsp
	.seh_stackalloc 40
	.seh_endprologue
	movq %rcx, %rax
	movq %rdx, %rcx
.Lguarded:
	call *%rax
	nop
.Lguarded_end:
	xorl %eax, %eax
	jmp .Lreturn
.Llanding:
	call GuardResult
.Lreturn:
	addq $40, %rsp
	ret
	.seh_handler __C_specific_handler, @except
	.seh_handlerdata
	.long 1
	.rva .Lguarded, .Lguarded_end, GuardFilter, .Llanding
	.text
	.seh_endproc
)");

}  // namespace platform
