// Does nothing: what starting it costs is what starting a program costs, and what loading its objects adds.
int main(void) {
    return 0;
}
