#include <memory>
#include <vector>
class __declspec(dllexport) Owner
{
public:
    Owner();
    ~Owner();

private:
    std::vector<std::unique_ptr<int>> m_items;
};
