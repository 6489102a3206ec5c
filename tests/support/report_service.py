#!/usr/bin/python3
# Stands in for the report service on a free local port (printed first): POST /reports answers by
# the note it carries ("fail": 500, "slow": nothing for 5 s, else 200 with a report number), and
# each request is printed as: path, query, content type, body size.
import http.server, sys, time, urllib.parse

class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        url = urllib.parse.urlsplit(self.path)
        body = self.rfile.read(int(self.headers.get('Content-Length', 0)))
        print(url.path, url.query, self.headers.get('Content-Type'), len(body), flush=True)
        note = urllib.parse.parse_qs(url.query).get('note', [''])[0]
        if note == 'slow':
            time.sleep(5)
        status, text = (500, b'oops') if note == 'fail' else (200, b'4711\n')
        self.send_response(status)
        self.send_header('Content-Length', str(len(text)))
        self.end_headers()
        self.wfile.write(text)

    def log_message(self, *args):
        pass

server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
