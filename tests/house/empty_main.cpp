// Links a room whole, with nothing but what it declares.
int main() {
  return 0;
}
