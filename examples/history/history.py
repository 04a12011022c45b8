#!/usr/bin/python3
"""Stores what va_mqtt publishes in PostgreSQL: events, counters, and when cameras were online.

The broker keeps what is not committed, also while this program is away. PGHOST, PGDATABASE and so
on say where the database is, in which schema.sql has been run.
"""
import argparse
import sys
import time
from pathlib import Path
import paho.mqtt.client as mqtt
import psycopg

TOPICS = ("onvif-ej/#", "va/available", "va/track/+")
STORE = "SELECT store(topic, payload) FROM unnest(%s::text[], %s::bytea[]) AS m(topic, payload)"
BAD_MESSAGE = (psycopg.DataError, psycopg.IntegrityError, psycopg.errors.ProgramLimitExceeded,
               psycopg.errors.StatementTooComplex)


class Client(mqtt.Client):
    def _send_puback(self, mid):  # on receipt, which is too early: run() does it after the commit
        return mqtt.MQTT_ERR_SUCCESS

    def on_connect(self, _client, settings, _flags, code):
        print("broker:", mqtt.connack_string(code), file=sys.stderr)
        self.subscribe([(f"{prefix}/{topic}", 1) for prefix in settings.prefix for topic in TOPICS])

    def on_subscribe(self, _client, _settings, _mid, granted):
        if 0x80 in granted:
            raise ConnectionError("the broker refuses the subscription")


def store(database, messages):
    try:
        database.execute(STORE, ([m.topic for m in messages], [m.payload for m in messages]))
    except BAD_MESSAGE as error:
        if len(messages) == 1:
            database.execute("INSERT INTO unreadable (topic, payload, why) VALUES (%s, %s, %s)",
                             (messages[0].topic, messages[0].payload[:65536], str(error)[:200]))
        for message in messages if len(messages) > 1 else ():
            store(database, [message])


def run(settings, database):
    """Until a connection is lost. What was not acknowledged comes again with the next one."""
    client, batch = Client(settings.session, clean_session=False, userdata=settings), []
    client.on_message = lambda _client, _settings, message: batch.append(message)
    if settings.cafile:
        client.tls_set(settings.cafile)
    if settings.username:
        client.username_pw_set(settings.username, settings.password_file.read_text().rstrip("\n"))
    client.connect(settings.host, settings.port)
    while True:
        known = len(batch)
        if error := client.loop(0 if batch else 1):
            raise ConnectionError("broker: " + mqtt.error_string(error))
        if known and (len(batch) == known or known >= 1000):  # no more has come
            store(database, batch)
            for message in filter(lambda message: message.qos, batch):
                mqtt.Client._send_puback(client, message.mid)
            batch.clear()


parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("prefix", nargs="+", help="of cameras, such as cameras/+")
parser.add_argument("--host", default="localhost")
parser.add_argument("--port", type=int, default=8884)
parser.add_argument("--cafile")
parser.add_argument("--username")
parser.add_argument("--password-file", type=Path)
parser.add_argument("--session", default="history", help="the client id")
options = parser.parse_args()
while True:
    try:
        with psycopg.connect(connect_timeout=15, keepalives_idle=15, tcp_user_timeout=15000,
                             autocommit=True) as connection:
            run(options, connection)
    except (OSError, psycopg.OperationalError) as lost:
        print(lost, file=sys.stderr)
    time.sleep(1)
