#include "driver/run.hpp"

int main(int argc, char** argv) { return deqaz::deqazMain(argc, argv); }
