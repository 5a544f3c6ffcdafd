#include "library/CompanionCall.h"

#include <windows.h>

// The function below catches exceptions that a program raises itself, which have bit 29 ("NTSTATUS", "RaiseException"), except those of
// this compiler, which its own frames handle.
extern "C" __attribute__((used)) LONG QuelcryptForeignFilter(EXCEPTION_POINTERS* exception, void*) {
    constexpr DWORD raisedByProgram = 1u << 29;
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    const bool isOwn = (code & 0xFFFFFF) == 0x474343;  // "GCC"
    return (code & raisedByProgram) && !isOwn ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
}

// This compiler has no __try; its assembler can do the same ("x64 exception handling": language-specific handler, scope table).
asm(R"(
    .text
    .globl EndsByForeignException
    .def EndsByForeignException; .scl 2; .type 32; .endef
    .seh_proc EndsByForeignException
EndsByForeignException:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
QuelcryptGuardBegin:
    callq *%rax
    nop
QuelcryptGuardEnd:
    xorl %eax, %eax
    jmp QuelcryptGuardLeave
QuelcryptGuardCaught:
    movl $1, %eax
QuelcryptGuardLeave:
    addq $40, %rsp
    ret
    .seh_handler __C_specific_handler, @except
    .seh_handlerdata
    .long 1
    .rva QuelcryptGuardBegin, QuelcryptGuardEnd, QuelcryptForeignFilter, QuelcryptGuardCaught
    .text
    .seh_endproc
)");
