// A client that misuses the service:  attacker PHONE KIND
#include "bench/attackers.h"
#include "sim/phone.h"

int main(int /*argc*/, char** argv) {
    sim::Phone::open(argv[1]);
    return bench::attack(argv[2]);
}
