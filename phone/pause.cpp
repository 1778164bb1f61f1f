// Waits for a signal, under any name: what a daemon of the phone becomes (exec -a NAME pause), so that ps
// lists it and a signal ends it at once, which a shell would put off until its own child has ended.
#include <unistd.h>

int main()
{
    for (;;)
        pause();
}
