# The house rules that a compiler does not check.
add_test(NAME tidy COMMAND python3 ${PROJECT_SOURCE_DIR}/scripts/tidy.py)
set_tests_properties(tidy PROPERTIES LABELS tidy)
