// Built without any protection: what the check of the protection must find.
int value = 1;

// Code that holds an address.
__asm__(".pushsection .text\n .balign 8\n .quad value\n .popsection\n");

int main() { return value - 1; }
