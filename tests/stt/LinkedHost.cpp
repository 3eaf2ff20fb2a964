extern "C" int runScenario(int count, char** arguments);

int main(int count, char** arguments) {
    return runScenario(count, arguments);
}
