"""A client of the dataplane agent."""
