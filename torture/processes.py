"""Work in processes of its own."""

import multiprocessing

CONTEXT = multiprocessing.get_context("fork")
PATIENCE_S = 900


class Work:
    def __init__(self, function, *arguments):
        self.results, theirs = CONTEXT.Pipe(False)
        self.process = CONTEXT.Process(target=self.run, args=(theirs, function, arguments), daemon=True)
        self.process.start()
        theirs.close()

    @staticmethod
    def run(results, function, arguments):
        try:
            results.send((function(*arguments), None))
        except Exception as error:  # the parent raises it
            results.send((None, error))

    def result(self):
        if not self.results.poll(PATIENCE_S):
            raise TimeoutError("a hostile client does not come to its end")
        value, error = self.results.recv()
        self.process.join()
        if error:
            raise error
        return value


def at_once(count, function, *arguments):
    """Runs function(number, *arguments) in `count` processes. Returns what they return."""
    return [work.result() for work in [Work(function, number, *arguments) for number in range(count)]]
