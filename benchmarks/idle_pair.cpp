// The least that a program of two threads with a 1 ms turn can cost: they only sleep.

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
