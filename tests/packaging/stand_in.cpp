// Stands in for vesk_h264 under its supervisor: does at each start what the text at the end of its
// own file says.
//
//   PLAN NAME WORD...     the word for each start, the last for all that follow
//
// fail: ends with status 1. zero: ends with status 0. update: puts /opt/scratch/new in its own
// place and ends. hang: never starts up. brief: starts up and ends. late: starts up and ends four
// seconds later. up: starts up and stays. chatty: starts up, prints a thousand lines and a long
// one, and stays. NAME goes to /opt/scratch/starts, so that a test sees what was started.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <unistd.h>

int main()
{
    std::ifstream file("/proc/self/exe", std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    std::istringstream plan(content.substr(content.rfind("\nPLAN ") + 6));
    std::string name;
    plan >> name;

    int starts = 0;
    std::string each;
    for (std::ifstream before("/opt/scratch/starts"); before >> each;) {
        starts += each == name ? 1 : 0;
    }
    std::ofstream("/opt/scratch/starts", std::ios::app) << name << std::endl;

    std::string word;
    for (int i = 0; i <= starts && plan >> each; ++i) {
        word = each;
    }
    if (word == "update") {
        return std::rename("/opt/scratch/new", "/usr/bin/vesk_h264");
    }
    if (word == "fail" || word == "zero") {
        return word == "fail" ? 1 : 0;
    }
    if (word != "hang") {
        std::puts("enter main");
    }
    if (word == "chatty") {
        for (int i = 1; i <= 1000; ++i) {
            std::printf("line %d\n", i);
        }
        std::fflush(stdout);
        sleep(2);
        std::puts((std::string(500, 'x') + " whole").c_str());
    }
    std::fflush(stdout);
    if (word == "late") {
        sleep(4);
        return 0;
    }
    while (word != "brief") {
        pause();
    }
}
