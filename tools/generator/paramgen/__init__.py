"""The module generator: schema tables in, C++ namespaces out."""
