int One()
{
    return ({
        int x = 1;
        x;
    });
}
