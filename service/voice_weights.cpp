// The voice detector's weights. The language has no other way to include a file of bytes.
asm(".section .rodata.kelvarin_voice_weights,\"a\",@progbits\n"
    ".balign 64\n"
    ".globl kelvarin_voice_weights\n"
    "kelvarin_voice_weights:\n"
    ".incbin \"" KELVARIN_VOICE_WEIGHTS "\"\n"
    ".size kelvarin_voice_weights, . - kelvarin_voice_weights\n"
    ".previous\n");
