// guarded_heap HOW: does to the heap what must end the program, or with "nothing" does nothing wrong and ends with 0.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

int main(int count, char** values) {
    const std::string how = count > 1 ? values[1] : "";
    std::vector<std::unique_ptr<char[]>> others;
    char* volatile block = new char[100];
    const std::size_t beyond = how == "overrun" ? 1 : 0;
    std::memset(block, 1, 100 + beyond);
    if (how == "underrun")
        block[-1] = 1;
    delete[] block;
    if (how == "twice")
        delete[] block;
    if (how == "after")
        block[50] = 1;
    for (int i = 0; i < 2000; ++i)
        others.push_back(std::make_unique<char[]>(10));
    return 0;
}
