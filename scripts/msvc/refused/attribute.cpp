__attribute__((noinline)) void Run()
{
}
