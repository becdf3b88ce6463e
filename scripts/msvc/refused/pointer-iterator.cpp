#include <array>
std::array<int, 3> numbers;
int* first = numbers.begin();
