// The program whose compiled header the test programs use; see CMakeLists.txt.
int main() {
    return 0;
}
