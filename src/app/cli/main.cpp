#include "app/cli/Run.h"

int main(int argc, char** argv) {
    return brassline::cli::run(std::vector<std::string>(argv, argv + argc));
}
