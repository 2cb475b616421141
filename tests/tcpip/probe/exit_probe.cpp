// Exits with 42 and does nothing else: started in place of a system tool, it shows.
int main() {
    return 42;
}
