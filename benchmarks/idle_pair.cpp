// The least that a program can cost whose two threads each wake every 1 ms: they only sleep.

#include <thread>
#include <unistd.h>

int main()
{
    const auto sleepForever = [] {
        for (;;) {
            usleep(1000);
        }
    };
    std::thread second(sleepForever);
    sleepForever();
}
